// What camwifi-sim knows about the files it pushes and the files the phone
// received: is it a JPEG photo or an MP4 video, what size is a photo, and
// is a received copy what was sent.
#ifndef CAMWIFI_SIM_MEDIA_H
#define CAMWIFI_SIM_MEDIA_H

#include <string>

namespace camsim {

enum class MediaKind { Photo, Video };

// Checks that path is a readable JPEG photo or MP4 video (by its content).
// False with a reason a person can act on ("no such file", "not a picture
// or video", ...).
bool checkPushable(const std::string& path, MediaKind* kind, std::string* why);

// Decodes the whole JPEG at path; false when it is not a decodable JPEG.
bool decodeJpegSize(const std::string& path, int* width, int* height);

// The size the camera makes of a width x height photo when it shrinks
// pictures: a long side of 1920 pixels, the aspect kept, never enlarged.
void resizedSize(int width, int height, int* outWidth, int* outHeight);

bool readWholeFile(const std::string& path, std::string* bytes);
unsigned long long fileSize(const std::string& path);
std::string baseName(const std::string& path);

}  // namespace camsim

#endif
