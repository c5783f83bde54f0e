// The DLNA stack's object model and its accessors, shared by both host
// implementations of the stack: requests the library fills, answers and
// notifications it reads (whichever stack made them), the media-server
// object requests with their DIDL-Lite metadata, the item list and the
// configuration check. Every accessor is journalled and takes a scripted
// failure, so the unit tests see the same calls whichever stack answers.
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "host_internal.h"
#include "streaming_server.h"
#include "upnp_xml.h"
#include "zeb_media_internal.h"
#include "zeb_objects.h"
#include "zeb_stack.h"

using host::mrcp::Renderer;
using host::mrcp::Response;
using host::mrcp::SentRequest;

struct ZEBList_s {
    std::vector<void*> items;
};

namespace host {
namespace zeb {

namespace {
std::atomic<int> gLiveObjects{0};
}  // namespace

stZEBAppList* newObject() {
    ++gLiveObjects;
    return new stZEBAppList;
}

ZEB_ERROR_CODE releaseObject(const char* fn, stZEBAppList* object) {
    host::journal("%s()", fn);
    if (object == nullptr) return 1;
    delete object;
    --gLiveObjects;
    return 0;
}

int liveObjects() { return gLiveObjects.load(); }

void fillDeviceDetails(const Renderer& r, stZEBMRCPDeviceDetails* details) {
    memset(details, 0, sizeof *details);
    snprintf(details->szIPAddress, sizeof details->szIPAddress, "%s", r.ip.c_str());
    snprintf(details->szFriendlyName, sizeof details->szFriendlyName, "%s", r.name.c_str());
    snprintf(details->szUDN, sizeof details->szUDN, "%s", r.udn.c_str());
    snprintf(details->szManufacturer, sizeof details->szManufacturer, "%s", r.manufacturer.c_str());
    snprintf(details->szModelName, sizeof details->szModelName, "%s", r.modelName.c_str());
    snprintf(details->szModelNumber, sizeof details->szModelNumber, "%s", r.modelNumber.c_str());
}

// One escaper for the whole stack: the real stack's SOAP bodies use it too.
std::string escapeXml(const std::string& text) { return camwifi::upnp::escapeXml(text); }

namespace {

// XML 1.0 allows no control character but tab, line feed and carriage
// return, even escaped: a file name carrying one would make the whole
// metadata unreadable to a renderer, so such characters become '?'.
std::string xmlText(const std::string& text) {
    std::string clean = text;
    for (char& c : clean) {
        unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 && c != '\t' && c != '\n' && c != '\r') c = '?';
    }
    return escapeXml(clean);
}

bool parseResolution(const std::string& text, long* width, long* height) {
    char x = 0;
    char rest = 0;
    return sscanf(text.c_str(), "%ld%c%ld%c", width, &x, height, &rest) == 3 && (x == 'x' || x == 'X') &&
           *width > 0 && *height > 0;
}

// The DLNA.ORG_FLAGS of content served by the streaming server, the same
// value its contentFeatures.dlna.org header carries for that type: DLNA 1.5,
// background transfer, and streaming (video, audio) or interactive (image)
// transfer.
std::string dlnaFlagsFor(const std::string& mimeType) {
    std::string features = camwifi::upnp::contentFeaturesFor(mimeType);
    size_t p = features.find("DLNA.ORG_FLAGS=");
    if (p == std::string::npos) return "";
    return features.substr(p + 15, features.find(';', p) - (p + 15));
}

// The fourth field of a res@protocolInfo: the profile first, then what the
// library gave ("DLNA.ORG_OP=01": the server seeks by byte ranges), then the
// flags; "*" when there is nothing to say.
std::string fourthField(const std::string& mimeType, const std::string& resolution,
                        const std::optional<std::string>& additional) {
    std::string given = additional.value_or("");
    std::vector<std::string> parts;
    std::string profile = dlnaProfileFor(mimeType, resolution);
    if (!profile.empty() && given.find("DLNA.ORG_PN=") == std::string::npos)
        parts.push_back("DLNA.ORG_PN=" + profile);
    if (!given.empty() && given != "*") parts.push_back(given);
    std::string flags = dlnaFlagsFor(mimeType);
    if (!parts.empty() && !flags.empty() && given.find("DLNA.ORG_FLAGS=") == std::string::npos)
        parts.push_back("DLNA.ORG_FLAGS=" + flags);
    std::string out;
    for (const std::string& part : parts) out += (out.empty() ? "" : ";") + part;
    return out.empty() ? "*" : out;
}

}  // namespace

std::string dlnaProfileFor(const std::string& mimeType, const std::string& resolution) {
    long w = 0, h = 0;
    bool known = parseResolution(resolution, &w, &h);
    if (mimeType == "image/jpeg") {
        // JPEG_SM up to 640x480, JPEG_MED up to 1024x768, JPEG_LRG up to
        // 4096x4096; larger pictures have no DLNA profile. A photo of unknown
        // size is called JPEG_LRG: a camera's photos are almost always larger
        // than 1024x768, and calling one smaller than it is could make a
        // renderer refuse or cut it, while LRG is what TVs that show photos
        // accept.
        if (!known) return "JPEG_LRG";
        long longSide = std::max(w, h), shortSide = std::min(w, h);
        if (longSide <= 640 && shortSide <= 480) return "JPEG_SM";
        if (longSide <= 1024 && shortSide <= 768) return "JPEG_MED";
        if (longSide <= 4096 && shortSide <= 4096) return "JPEG_LRG";
        return "";
    }
    if (mimeType == "video/mp4") {
        // The camera records H.264 with AAC sound in MP4. Standard definition
        // (up to 720x576) is AVC_MP4_MP_SD_AAC_MULT5; anything larger, or of
        // unknown size (the camera's usual 720p and 1080p clips), the HD
        // profile of that pair.
        if (known && w <= 720 && h <= 576) return "AVC_MP4_MP_SD_AAC_MULT5";
        return "AVC_MP4_MP_HD_720p_AAC";
    }
    return "";
}

std::string didlLite(const stZEBAppList& o) {
    bool video = *o.objectType == "VIDEO";
    std::string xml =
        "<DIDL-Lite xmlns=\"urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/\""
        " xmlns:dc=\"http://purl.org/dc/elements/1.1/\""
        " xmlns:upnp=\"urn:schemas-upnp-org:metadata-1-0/upnp/\""
        " xmlns:dlna=\"urn:schemas-dlna-org:metadata-1-0/\">";
    xml += "<item id=\"" + xmlText(*o.objectId) + "\" parentID=\"" + xmlText(o.parentId.value_or("-1")) +
           "\" restricted=\"1\">";
    xml += "<dc:title>" + xmlText(*o.title) + "</dc:title>";
    if (o.date) xml += "<dc:date>" + xmlText(*o.date) + "</dc:date>";
    xml += std::string("<upnp:class>") + (video ? "object.item.videoItem" : "object.item.imageItem.photo") +
           "</upnp:class>";
    int count = o.numResources > 0 ? std::min<int>(o.numResources, static_cast<int>(o.resources.size()))
                                   : static_cast<int>(o.resources.size());
    for (int i = 0; i < count; ++i) {
        const auto& r = o.resources[static_cast<size_t>(i)];
        // pURI, pProtocol, pMimeType, pDuration, pSize, pResolution, pAdditionalInfo
        std::string mime = r[2].value_or("*");
        std::string protocolInfo =
            r[1].value_or("http-get") + ":*:" + mime + ":" + fourthField(mime, r[5].value_or(""), r[6]);
        xml += "<res protocolInfo=\"" + xmlText(protocolInfo) + "\"";
        if (r[4]) xml += " size=\"" + xmlText(*r[4]) + "\"";
        if (r[3]) xml += " duration=\"" + xmlText(*r[3]) + "\"";
        if (r[5]) xml += " resolution=\"" + xmlText(*r[5]) + "\"";
        xml += ">" + xmlText(r[0].value_or("")) + "</res>";
    }
    xml += "</item></DIDL-Lite>";
    return xml;
}

}  // namespace zeb
}  // namespace host

namespace {

using host::zeb::newObject;
using host::zeb::releaseObject;

const char* orNull(const char* s) { return s ? s : "(null)"; }

// A new request or object in *out (null on failure); scripted failures count.
ZEB_ERROR_CODE allocObject(const char* fn, stZEBAppList** out) {
    host::journal("%s()", fn);
    if (out == nullptr) return 1;
    *out = nullptr;
    long long scripted;
    if (host::takeScriptedResult(fn, &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    *out = newObject();
    return 0;
}

// --- Reading fields -----------------------------------------------------------------
// Each getter: journalled, a scripted failure when queued, else the field.
bool scriptedFailure(const char* fn) { return host::scriptedOr(fn, 0) != 0; }

// field points into the object (null: absent), so the text lives as long as it.
ZEB_ERROR_CODE getText(const char* fn, stZEBAppList* object, const char** out, const std::string* field) {
    host::journal("%s()", fn);
    if (object == nullptr || out == nullptr || scriptedFailure(fn) || field == nullptr) return 1;
    *out = field->c_str();
    return 0;
}

const std::string* present(const std::optional<std::string>& field) { return field ? &*field : nullptr; }

ZEB_ERROR_CODE getInt(const char* fn, stZEBAppList* object, int* out, const std::optional<int>& field) {
    host::journal("%s()", fn);
    if (object == nullptr || out == nullptr || scriptedFailure(fn) || !field) return 1;
    *out = *field;
    return 0;
}

// --- Setting fields -------------------------------------------------------------------
template <typename T>
ZEB_ERROR_CODE setField(const char* fn, stZEBAppList* object, std::optional<T> SentRequest::*field, T value) {
    if (object == nullptr) return 1;
    long long scripted;
    if (host::takeScriptedResult(fn, &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    object->request.*field = value;
    return 0;
}

ZEB_ERROR_CODE setText(const char* fn, stZEBAppList* object, std::optional<std::string> SentRequest::*field,
                       const char* value) {
    host::journal("%s(%s)", fn, orNull(value));
    if (value == nullptr) return 1;
    return setField(fn, object, field, std::string(value));
}

ZEB_ERROR_CODE setObjectText(const char* fn, stZEBAppList* object, std::optional<std::string> stZEBAppList::*field,
                             const char* value) {
    host::journal("%s(%s)", fn, orNull(value));
    if (object == nullptr || value == nullptr) return 1;
    object->*field = std::string(value);
    return 0;
}

}  // namespace

// ==== Configuration check =================================================================
extern "C" int ZEBCheckFileState(const char* directory, const stZEBConfigFile* files, int count) {
    host::journal("ZEBCheckFileState(%s, %d)", orNull(directory), count);
    long long scripted;
    if (host::takeScriptedResult("ZEBCheckFileState", &scripted)) return static_cast<int>(scripted);
    if (directory == nullptr || files == nullptr || count <= 0) return 0;
    std::string dir = directory;
    if (!host::media::makeParentDirectories(dir + "/x")) return 0;
    for (int i = 0; i < count; ++i) {
        const stZEBConfigFile& f = files[i];
        if (f.pFileName == nullptr || f.pContent == nullptr) return 0;
        std::string path = dir + "/" + f.pFileName;
        struct stat st;
        if (stat(path.c_str(), &st) == 0) continue;
        // The length field may exceed the text: never read past its end.
        size_t length = strnlen(f.pContent, f.uiLength);
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(f.pContent, static_cast<std::streamsize>(length));
        if (!out) return 0;
    }
    return 1;
}

// ==== Requests ================================================================================
extern "C" ZEB_ERROR_CODE HZebMRCPAllocRequestResources(stZEBAppList** request) {
    return allocObject("HZebMRCPAllocRequestResources", request);
}

extern "C" ZEB_ERROR_CODE HZebMRCPReleaseRequestResources(stZEBAppList* request) {
    return releaseObject("HZebMRCPReleaseRequestResources", request);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetActionName(stZEBAppList* request, const char* action) {
    return setText("HZebMRCPRQSetActionName", request, &SentRequest::action, action);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetInstanceID(stZEBAppList* request, const char* instanceId) {
    return setText("HZebMRCPRQSetInstanceID", request, &SentRequest::instance, instanceId);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetPlaySpeed(stZEBAppList* request, int speed) {
    host::journal("HZebMRCPRQSetPlaySpeed(%d)", speed);
    return setField("HZebMRCPRQSetPlaySpeed", request, &SentRequest::speed, speed);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetMatchedURI(stZEBAppList* request, const char* uri) {
    return setText("HZebMRCPRQSetMatchedURI", request, &SentRequest::uri, uri);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetMetaData(stZEBAppList* request, const char* metadata) {
    return setText("HZebMRCPRQSetMetaData", request, &SentRequest::metadata, metadata);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetSeekUnit(stZEBAppList* request, const char* unit) {
    return setText("HZebMRCPRQSetSeekUnit", request, &SentRequest::seekUnit, unit);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetCurrPos(stZEBAppList* request, const char** position) {
    return setText("HZebMRCPRQSetCurrPos", request, &SentRequest::seekTarget, position ? *position : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetChannel(stZEBAppList* request, const char* channel) {
    return setText("HZebMRCPRQSetChannel", request, &SentRequest::channel, channel);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQSetVolume(stZEBAppList* request, int volume) {
    host::journal("HZebMRCPRQSetVolume(%d)", volume);
    return setField("HZebMRCPRQSetVolume", request, &SentRequest::volume, volume);
}


// ==== Responses ================================================================================
extern "C" ZEB_ERROR_CODE HZebMRCPReleaseResponseResources(stZEBAppList* response) {
    return releaseObject("HZebMRCPReleaseResponseResources", response);
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetActionName(stZEBAppList* response, const char** action) {
    return getText("HZebMRCPCRGetActionName", response, action, response ? &response->response.action : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebValidateUIResponse(stZEBAppList* response, int stackEvent) {
    host::journal("HZebValidateUIResponse(%d)", stackEvent);
    if (response == nullptr || scriptedFailure("HZebValidateUIResponse")) return 1;
    return response->stackEvent == stackEvent ? 0 : 1;
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetNumberOfDevices(stZEBAppList* response, int* count) {
    std::optional<int> n;
    if (response != nullptr && response->stackEvent == ZEB_MRCP_EVENT_DEVICE_LIST)
        n = static_cast<int>(response->devices.size());
    return getInt("HZebMRCPCRGetNumberOfDevices", response, count, n);
}

namespace {
const std::string* deviceField(stZEBAppList* response, int device, std::string Renderer::*field) {
    if (response == nullptr || device < 1 || static_cast<size_t>(device) > response->devices.size())
        return nullptr;
    return &(response->devices[static_cast<size_t>(device - 1)].*field);
}
}  // namespace

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetNameFromDeviceInfo(stZEBAppList* response, int device, const char** name) {
    return getText("HZebMRCPCRGetNameFromDeviceInfo", response, name, deviceField(response, device, &Renderer::name));
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetUDNFromDeviceInfo(stZEBAppList* response, int device, const char** udn) {
    return getText("HZebMRCPCRGetUDNFromDeviceInfo", response, udn, deviceField(response, device, &Renderer::udn));
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetTCharContext(stZEBAppList* response, const char** context) {
    return getText("HZebMRCPCRGetTCharContext", response, context,
                   response ? present(response->response.context) : nullptr);
}

namespace {
ZEB_MRCP_DEVICE_STATUS stateOfText(const std::string& text) {
    static const struct { const char* text; ZEB_MRCP_DEVICE_STATUS state; } kStates[] = {
        {"STOPPED", ZEB_MRCP_STATE_STOPPED},
        {"PLAYING", ZEB_MRCP_STATE_PLAYING},
        {"PAUSED_PLAYBACK", ZEB_MRCP_STATE_PAUSED_PLAYBACK},
        {"TRANSITIONING", ZEB_MRCP_STATE_TRANSITIONING},
        {"PAUSED_RECORDING", ZEB_MRCP_STATE_PAUSED_RECORDING},
        {"RECORDING", ZEB_MRCP_STATE_RECORDING},
        {"NO_MEDIA_PRESENT", ZEB_MRCP_STATE_NO_MEDIA_PRESENT},
    };
    for (auto& s : kStates)
        if (text == s.text) return s.state;
    return ZEB_MRCP_STATE_UNKNOWN;
}
}  // namespace

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetTransportInfo(stZEBAppList* response, ZEB_MRCP_DEVICE_STATUS* state,
                                                     int* status) {
    host::journal("HZebMRCPRQGetTransportInfo()");
    if (response == nullptr || state == nullptr || status == nullptr || scriptedFailure("HZebMRCPRQGetTransportInfo"))
        return 1;
    const Response& r = response->response;
    if (!r.transportState) return 1;
    *state = stateOfText(*r.transportState);
    *status = r.transportStatus.value_or("OK") == "ERROR_OCCURRED" ? ZEB_MRCP_TRANSPORT_STATUS_ERROR
                                                                   : ZEB_MRCP_TRANSPORT_STATUS_OK;
    return 0;
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetTrackDuration(stZEBAppList* response, int* milliseconds) {
    return getInt("HZebMRCPCRGetTrackDuration", response, milliseconds,
                  response ? response->response.durationMs : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetRelTime(stZEBAppList* response, int* milliseconds) {
    return getInt("HZebMRCPCRGetRelTime", response, milliseconds,
                  response ? response->response.relTimeMs : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetVolume(stZEBAppList* response, int* volume) {
    return getInt("HZebMRCPRQGetVolume", response, volume, response ? response->response.volume : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPCRGetSinkProtocolInfo(stZEBAppList* response, const char** protocolInfo) {
    return getText("HZebMRCPCRGetSinkProtocolInfo", response, protocolInfo,
                   response ? present(response->response.sinkProtocolInfo) : nullptr);
}

// ==== Notifications ===========================================================================
extern "C" ZEB_ERROR_CODE HZebMRCPReleaseInfoResources(stZEBAppList* info) {
    return releaseObject("HZebMRCPReleaseInfoResources", info);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetDeviceName(stZEBAppList* info, const char** name) {
    return getText("HZebMRCPRQGetDeviceName", info, name, info ? &info->name : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPRQGetDeviceUDN(stZEBAppList* info, const char** udn) {
    return getText("HZebMRCPRQGetDeviceUDN", info, udn, info ? &info->udn : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPEIGetExceptionType(stZEBAppList* info, int* type) {
    return getInt("HZebMRCPEIGetExceptionType", info, type,
                  info ? std::optional<int>(info->exceptionType) : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPEIGetExceptionValue(stZEBAppList* info, const char** value) {
    return getText("HZebMRCPEIGetExceptionValue", info, value, info ? &info->exceptionValue : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetDeviceUDN(stZEBAppList* info, const char** udn) {
    return getText("HZebMRCPDIGetDeviceUDN", info, udn, info ? &info->status.udn : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetServiceType(stZEBAppList* info, const char** serviceType) {
    return getText("HZebMRCPDIGetServiceType", info, serviceType, info ? &info->status.serviceType : nullptr);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetNumOfArgument(stZEBAppList* info, int* count) {
    return getInt("HZebMRCPDIGetNumOfArgument", info, count,
                  info ? std::optional<int>(static_cast<int>(info->status.variables.size())) : std::nullopt);
}

extern "C" ZEB_ERROR_CODE HZebMRCPDIGetStateVariable(stZEBAppList* info, int index, const char** name,
                                                     const char** value) {
    host::journal("HZebMRCPDIGetStateVariable(%d)", index);
    if (info == nullptr || name == nullptr || value == nullptr || index < 0 ||
        static_cast<size_t>(index) >= info->status.variables.size() || scriptedFailure("HZebMRCPDIGetStateVariable"))
        return 1;
    *name = info->status.variables[static_cast<size_t>(index)].first.c_str();
    *value = info->status.variables[static_cast<size_t>(index)].second.c_str();
    return 0;
}

// ==== Item list ===================================================================================
extern "C" ZEB_LIST ZEBListCreate(void) {
    host::journal("ZEBListCreate()");
    if (host::scriptedOr("ZEBListCreate", 1) == 0) return nullptr;
    return new ZEBList_s;
}

extern "C" ZEB_ERROR_CODE ZEBListAppend(ZEB_LIST list, void* item) {
    if (list == nullptr || item == nullptr) return 1;
    list->items.push_back(item);
    return 0;
}

extern "C" unsigned int ZEBListCount(ZEB_LIST list) {
    return list ? static_cast<unsigned int>(list->items.size()) : 0;
}

extern "C" void* ZEBListGetAt(ZEB_LIST list, unsigned int index) {
    return list && index < list->items.size() ? list->items[index] : nullptr;
}

extern "C" void ZEBListDestroy(ZEB_LIST list) { delete list; }

// ==== Media-server object requests ====================================================================
extern "C" ZEB_ERROR_CODE HZebMSCPAllocRequestResources(stZEBAppList** object) {
    return allocObject("HZebMSCPAllocRequestResources", object);
}

extern "C" ZEB_ERROR_CODE HZebMSCPReleaseRequestResources(stZEBAppList* object) {
    return releaseObject("HZebMSCPReleaseRequestResources", object);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetObjectID(stZEBAppList* object, const char* id) {
    return setObjectText("HZebMSCPRQSetObjectID", object, &stZEBAppList::objectId, id);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetParentID(stZEBAppList* object, const char* parentId) {
    return setObjectText("HZebMSCPRQSetParentID", object, &stZEBAppList::parentId, parentId);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetTitle(stZEBAppList* object, const char* title) {
    return setObjectText("HZebMSCPRQSetTitle", object, &stZEBAppList::title, title);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetDate(stZEBAppList* object, const char* date) {
    return setObjectText("HZebMSCPRQSetDate", object, &stZEBAppList::date, date);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetObjectType(stZEBAppList* object, const char* type) {
    if (type != nullptr && strcmp(type, "VIDEO") != 0 && strcmp(type, "IMAGE") != 0) {
        host::journal("HZebMSCPRQSetObjectType(%s)", type);
        return 1;
    }
    return setObjectText("HZebMSCPRQSetObjectType", object, &stZEBAppList::objectType, type);
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetResources(stZEBAppList* object, ZEB_LIST resources) {
    host::journal("HZebMSCPRQSetResources(%u)", ZEBListCount(resources));
    if (object == nullptr || resources == nullptr) return 1;
    object->resources.clear();
    auto text = [](const char* s) { return s ? std::optional<std::string>(s) : std::nullopt; };
    for (void* item : resources->items) {
        const stZEBMSCPResource* r = static_cast<const stZEBMSCPResource*>(item);
        object->resources.push_back({text(r->pURI), text(r->pProtocol), text(r->pMimeType), text(r->pDuration),
                                     text(r->pSize), text(r->pResolution), text(r->pAdditionalInfo)});
    }
    return 0;
}

extern "C" ZEB_ERROR_CODE HZebMSCPRQSetNumOfResources(stZEBAppList* object, int count) {
    host::journal("HZebMSCPRQSetNumOfResources(%d)", count);
    if (object == nullptr || count < 0) return 1;
    object->numResources = count;
    return 0;
}

extern "C" char* HZebMSCPRQGetAVTransportURIMetadata(stZEBAppList* object) {
    host::journal("HZebMSCPRQGetAVTransportURIMetadata()");
    if (object == nullptr || !object->objectId || !object->title || !object->objectType || object->resources.empty())
        return nullptr;
    if (host::scriptedOr("HZebMSCPRQGetAVTransportURIMetadata", 1) == 0) return nullptr;
    return host::media::copyText(host::zeb::didlLite(*object));
}
