// Host stand-in of the DLNA stack's configuration file, file helpers and
// allocator. The configuration is a real XML file (format in zeb_stack.h),
// read afresh at each ZEBGetConfigurationMA so that a test can change it.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "host_internal.h"
#include "zeb_media_internal.h"
#include "zeb_stack.h"

namespace host {
namespace media {

namespace {

bool readWholeFile(const std::string& path, std::string* text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream s;
    s << in.rdbuf();
    *text = s.str();
    return true;
}

// Drops comments and processing instructions (the XML declaration) so that
// a key quoted inside them is never taken for an element.
std::string withoutMarkupNoise(const std::string& xml) {
    std::string out;
    out.reserve(xml.size());
    size_t i = 0;
    while (i < xml.size()) {
        const char* close = nullptr;
        if (xml.compare(i, 4, "<!--") == 0) close = "-->";
        else if (xml.compare(i, 2, "<?") == 0) close = "?>";
        if (close == nullptr) {
            out += xml[i++];
            continue;
        }
        size_t end = xml.find(close, i);
        if (end == std::string::npos) break;  // unterminated: ignore the rest
        i = end + strlen(close);
    }
    return out;
}

std::string decodeEntities(const std::string& s) {
    static const struct { const char* entity; char ch; } kEntities[] = {
        {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}};
    std::string out;
    for (size_t i = 0; i < s.size();) {
        bool replaced = false;
        if (s[i] == '&') {
            for (auto& e : kEntities) {
                size_t n = strlen(e.entity);
                if (s.compare(i, n, e.entity) == 0) {
                    out += e.ch;
                    i += n;
                    replaced = true;
                    break;
                }
            }
        }
        if (!replaced) out += s[i++];
    }
    return out;
}

std::string trimmed(const std::string& s) {
    const char* ws = " \t\r\n";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

}  // namespace

bool xmlElementText(const std::string& rawXml, const std::string& name, std::string* value) {
    if (name.empty()) return false;
    std::string xml = withoutMarkupNoise(rawXml);
    std::string open = "<" + name;
    for (size_t pos = xml.find(open); pos != std::string::npos; pos = xml.find(open, pos + 1)) {
        size_t after = pos + open.size();
        if (after >= xml.size()) return false;
        char c = xml[after];
        // "<HTTPStreamingPortX>" is another element.
        if (c != '>' && c != '/' && c != ' ' && c != '\t' && c != '\r' && c != '\n') continue;
        size_t tagEnd = xml.find('>', after);
        if (tagEnd == std::string::npos) return false;
        if (xml[tagEnd - 1] == '/') return false;  // <key/>: present but empty
        size_t close = xml.find("</" + name, tagEnd + 1);
        if (close == std::string::npos) return false;
        std::string text = xml.substr(tagEnd + 1, close - tagEnd - 1);
        if (text.find('<') != std::string::npos) return false;  // holds elements, not a value
        text = trimmed(decodeEntities(text));
        if (text.empty()) return false;
        *value = text;
        return true;
    }
    return false;
}

bool configValue(const std::string& key, std::string* value) {
    std::string path = configFilePath();
    std::string xml;
    if (path.empty() || !readWholeFile(path, &xml)) return false;
    return xmlElementText(xml, key, value);
}

bool makeParentDirectories(const std::string& path) {
    // Every folder above the file, shallowest first.
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        std::string dir = path.substr(0, slash);
        if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return true;
}

char* copyText(const std::string& text) {
    char* p = static_cast<char*>(malloc(text.size() + 1));
    if (p != nullptr) memcpy(p, text.c_str(), text.size() + 1);
    return p;
}

}  // namespace media
}  // namespace host

extern "C" void* ZEBMemAllocMA(unsigned int size) {
    host::journal("ZEBMemAllocMA(%u)", size);
    if (host::scriptedOr("ZEBMemAllocMA", 1) == 0) return nullptr;
    return malloc(size == 0 ? 1 : size);
}

extern "C" void ZEBMemFreeMA(void* memory) { free(memory); }

extern "C" char* ZEBGetConfigurationMA(const char* key) {
    host::journal("ZEBGetConfigurationMA(%s)", key ? key : "(null)");
    std::string value;
    if (key == nullptr || !host::media::configValue(key, &value)) return nullptr;
    return host::media::copyText(value);
}

extern "C" ZEB_ERROR_CODE ZEBCreateDirectoryStructure(const char* filePath) {
    host::journal("ZEBCreateDirectoryStructure(%s)", filePath ? filePath : "(null)");
    long long scripted;
    if (host::takeScriptedResult("ZEBCreateDirectoryStructure", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (filePath == nullptr) return 1;
    host::media::noteDatabasePath(filePath);
    return host::media::makeParentDirectories(filePath) ? 0 : 1;
}

extern "C" ZEB_ERROR_CODE ZEBRemoveFile(const char* filePath) {
    host::journal("ZEBRemoveFile(%s)", filePath ? filePath : "(null)");
    long long scripted;
    if (host::takeScriptedResult("ZEBRemoveFile", &scripted)) return static_cast<ZEB_ERROR_CODE>(scripted);
    if (filePath == nullptr) return 1;
    return unlink(filePath) == 0 ? 0 : 1;
}

extern "C" char* ZEBGetDeviceName(const char* descriptionFile) {
    host::journal("ZEBGetDeviceName(%s)", descriptionFile ? descriptionFile : "(null)");
    std::string xml, name;
    if (descriptionFile == nullptr || !host::media::readWholeFile(descriptionFile, &xml)) return nullptr;
    if (!host::media::xmlElementText(xml, "friendlyName", &name)) return nullptr;
    return host::media::copyText(name);
}
