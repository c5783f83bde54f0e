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

#include <ixml.h>

#include "xml_guard.h"

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

std::string trimmed(const std::string& s) {
    const char* ws = " \t\r\n";
    size_t b = s.find_first_not_of(ws);
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(ws) - b + 1);
}

}  // namespace

// The configuration and description files are read with libupnp's XML
// parser, as the camera's stack reads them: comments, attributes, entities
// and CDATA are handled by the parser, and a file that is not well-formed
// yields no value at all rather than a guess.
bool xmlElementText(const std::string& rawXml, const std::string& name, std::string* value) {
    if (name.empty() || !host::xml::safeForIxml(rawXml)) return false;
    IXML_Document* doc = nullptr;
    if (ixmlParseBufferEx(rawXml.c_str(), &doc) != IXML_SUCCESS || doc == nullptr) return false;
    bool found = false;
    // The first element of that name in document order decides, as a key
    // appears once in the file.
    IXML_NodeList* matches = ixmlDocument_getElementsByTagName(doc, name.c_str());
    IXML_Node* element = matches ? ixmlNodeList_item(matches, 0) : nullptr;
    if (element != nullptr) {
        std::string text;
        bool onlyText = true;
        for (IXML_Node* c = ixmlNode_getFirstChild(element); c != nullptr; c = ixmlNode_getNextSibling(c)) {
            const unsigned short type = ixmlNode_getNodeType(c);
            if (type == eTEXT_NODE || type == eCDATA_SECTION_NODE) {
                const char* v = ixmlNode_getNodeValue(c);
                if (v != nullptr) text += v;
            } else if (type == eELEMENT_NODE) {
                onlyText = false;  // holds elements, not a value
                break;
            }
        }
        text = trimmed(text);
        if (onlyText && !text.empty()) {
            *value = text;
            found = true;
        }
    }
    if (matches != nullptr) ixmlNodeList_free(matches);
    ixmlDocument_free(doc);
    return found;
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
