#include "upnp_xml.h"

#include <ixml.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

#include "xml_guard.h"

namespace camwifi {
namespace upnp {

namespace {

struct DocFree {
    void operator()(IXML_Document* d) const { ixmlDocument_free(d); }
};
using Doc = std::unique_ptr<IXML_Document, DocFree>;

Doc parse(const std::string& text) {
    if (!host::xml::safeForIxml(text)) return nullptr;
    return Doc(ixmlParseBuffer(text.c_str()));
}

// Local name of an element (prefix dropped), "" for other nodes.
std::string localName(IXML_Node* n) {
    if (n == nullptr || ixmlNode_getNodeType(n) != eELEMENT_NODE) return "";
    const char* l = ixmlNode_getLocalName(n);
    if (l == nullptr) l = ixmlNode_getNodeName(n);
    if (l == nullptr) return "";
    const char* colon = strrchr(l, ':');
    return colon ? colon + 1 : l;
}

std::vector<IXML_Node*> childElements(IXML_Node* n) {
    std::vector<IXML_Node*> out;
    for (IXML_Node* c = n ? ixmlNode_getFirstChild(n) : nullptr; c; c = ixmlNode_getNextSibling(c))
        if (ixmlNode_getNodeType(c) == eELEMENT_NODE) out.push_back(c);
    return out;
}

IXML_Node* child(IXML_Node* n, const char* name) {
    for (IXML_Node* c : childElements(n))
        if (localName(c) == name) return c;
    return nullptr;
}

// Concatenated text (and CDATA) directly inside n, trimmed.
std::string text(IXML_Node* n) {
    std::string out;
    for (IXML_Node* c = n ? ixmlNode_getFirstChild(n) : nullptr; c; c = ixmlNode_getNextSibling(c)) {
        unsigned short t = ixmlNode_getNodeType(c);
        if (t == eTEXT_NODE || t == eCDATA_SECTION_NODE) {
            const char* v = ixmlNode_getNodeValue(c);
            if (v) out += v;
        }
    }
    size_t b = out.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return "";
    size_t e = out.find_last_not_of(" \t\r\n");
    return out.substr(b, e - b + 1);
}

std::string childText(IXML_Node* n, const char* name) { return text(child(n, name)); }

// Depth-first search for the first element of local name, bounded in depth.
IXML_Node* findElement(IXML_Node* n, const char* name, int depth = 0) {
    if (n == nullptr || depth > 32) return nullptr;
    for (IXML_Node* c : childElements(n)) {
        if (localName(c) == name) return c;
        if (IXML_Node* f = findElement(c, name, depth + 1)) return f;
    }
    return nullptr;
}

void collectDevices(IXML_Node* device, const std::string& base, std::vector<DeviceInfo>* out, int depth) {
    if (device == nullptr || depth > 8) return;
    DeviceInfo d;
    d.udn = childText(device, "UDN");
    d.deviceType = childText(device, "deviceType");
    d.friendlyName = childText(device, "friendlyName");
    d.manufacturer = childText(device, "manufacturer");
    d.modelName = childText(device, "modelName");
    d.modelNumber = childText(device, "modelNumber");
    for (IXML_Node* s : childElements(child(device, "serviceList"))) {
        if (localName(s) != "service") continue;
        ServiceInfo si;
        si.serviceType = childText(s, "serviceType");
        si.scpdUrl = childText(s, "SCPDURL");
        std::string control = childText(s, "controlURL");
        std::string event = childText(s, "eventSubURL");
        if (si.serviceType.empty() || control.empty()) continue;
        si.controlUrl = resolveUrl(base, control);
        if (!event.empty()) si.eventSubUrl = resolveUrl(base, event);
        d.services.push_back(si);
    }
    if (!d.udn.empty()) out->push_back(d);
    for (IXML_Node* e : childElements(child(device, "deviceList")))
        if (localName(e) == "device") collectDevices(e, base, out, depth + 1);
}

// Prefix of url up to (not including) the path: "http://h:p".
std::string origin(const std::string& url) {
    size_t scheme = url.find("://");
    if (scheme == std::string::npos) return "";
    size_t path = url.find('/', scheme + 3);
    return path == std::string::npos ? url : url.substr(0, path);
}

}  // namespace

const ServiceInfo* DeviceInfo::service(const std::string& typePrefix) const {
    for (const ServiceInfo& s : services)
        if (s.serviceType.compare(0, typePrefix.size(), typePrefix) == 0) return &s;
    return nullptr;
}

std::string resolveUrl(const std::string& base, const std::string& ref) {
    if (strncasecmp(ref.c_str(), "http://", 7) == 0 || strncasecmp(ref.c_str(), "https://", 8) == 0) return ref;
    std::string o = origin(base);
    if (o.empty()) return ref;
    if (!ref.empty() && ref[0] == '/') return o + ref;
    std::string path = base.substr(o.size());
    size_t q = path.find('?');
    if (q != std::string::npos) path.resize(q);
    size_t slash = path.rfind('/');
    std::string dir = slash == std::string::npos ? "/" : path.substr(0, slash + 1);
    return o + dir + ref;
}

bool parseDeviceDescription(const std::string& textIn, const std::string& location,
                            std::vector<DeviceInfo>* devices) {
    devices->clear();
    Doc doc = parse(textIn);
    if (!doc) return false;
    IXML_Node* root = nullptr;
    for (IXML_Node* c : childElements(reinterpret_cast<IXML_Node*>(doc.get())))
        if (localName(c) == "root") root = c;
    if (root == nullptr) return false;
    std::string base = childText(root, "URLBase");
    if (base.empty() || origin(base).empty()) base = location;
    collectDevices(child(root, "device"), base, devices, 0);
    return !devices->empty();
}

std::string escapeXml(const std::string& in) {
    std::string out;
    out.reserve(in.size());
    for (char c : in) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string soapEnvelope(const std::string& serviceType, const std::string& action,
                         const std::vector<std::pair<std::string, std::string>>& arguments) {
    std::string body =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n"
        "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\" "
        "s:encodingStyle=\"http://schemas.xmlsoap.org/soap/encoding/\"><s:Body>";
    body += "<u:" + action + " xmlns:u=\"" + escapeXml(serviceType) + "\">";
    for (const auto& a : arguments) body += "<" + a.first + ">" + escapeXml(a.second) + "</" + a.first + ">";
    body += "</u:" + action + "></s:Body></s:Envelope>\r\n";
    return body;
}

const std::string* SoapAnswer::argument(const std::string& name) const {
    for (const auto& a : arguments)
        if (a.first == name) return &a.second;
    return nullptr;
}

bool parseSoapAnswer(const std::string& bodyText, const std::string& action, SoapAnswer* out) {
    *out = SoapAnswer();
    Doc doc = parse(bodyText);
    if (!doc) return false;
    IXML_Node* envelope = nullptr;
    for (IXML_Node* c : childElements(reinterpret_cast<IXML_Node*>(doc.get())))
        if (localName(c) == "Envelope") envelope = c;
    IXML_Node* body = child(envelope, "Body");
    if (body == nullptr) return false;
    if (IXML_Node* fault = child(body, "Fault")) {
        out->fault = true;
        if (IXML_Node* err = findElement(fault, "UPnPError")) {
            std::string code = childText(err, "errorCode");
            char* end = nullptr;
            long v = strtol(code.c_str(), &end, 10);
            if (!code.empty() && end && *end == '\0' && v > 0 && v < 100000) out->upnpErrorCode = static_cast<int>(v);
            out->errorDescription = childText(err, "errorDescription");
        }
        return true;
    }
    IXML_Node* response = child(body, (action + "Response").c_str());
    if (response == nullptr) return false;
    for (IXML_Node* a : childElements(response)) out->arguments.emplace_back(localName(a), text(a));
    return true;
}

bool parseLastChange(const std::string& textIn, std::vector<std::pair<std::string, std::string>>* variables) {
    variables->clear();
    Doc doc = parse(textIn);
    if (!doc) return false;
    IXML_Node* event = nullptr;
    for (IXML_Node* c : childElements(reinterpret_cast<IXML_Node*>(doc.get())))
        if (localName(c) == "Event") event = c;
    if (event == nullptr) return false;
    IXML_Node* instance = nullptr;
    for (IXML_Node* c : childElements(event)) {
        if (localName(c) != "InstanceID") continue;
        const char* val = ixmlElement_getAttribute(reinterpret_cast<IXML_Element*>(c), "val");
        if (val != nullptr && strcmp(val, "0") == 0) {
            instance = c;
            break;
        }
        if (instance == nullptr) instance = c;
    }
    if (instance == nullptr) return false;
    for (IXML_Node* v : childElements(instance)) {
        const char* val = ixmlElement_getAttribute(reinterpret_cast<IXML_Element*>(v), "val");
        variables->emplace_back(localName(v), val ? val : "");
    }
    return true;
}

bool parsePropertySet(const std::string& body, std::vector<std::pair<std::string, std::string>>* variables) {
    variables->clear();
    Doc doc = parse(body);
    if (!doc) return false;
    IXML_Node* set = nullptr;
    for (IXML_Node* c : childElements(reinterpret_cast<IXML_Node*>(doc.get())))
        if (localName(c) == "propertyset") set = c;
    if (set == nullptr) return false;
    for (IXML_Node* p : childElements(set)) {
        if (localName(p) != "property") continue;
        for (IXML_Node* v : childElements(p)) variables->emplace_back(localName(v), text(v));
    }
    return true;
}

std::string lastChangeText(const std::string& ns, const std::vector<std::pair<std::string, std::string>>& variables) {
    std::string out = "<Event xmlns=\"" + escapeXml(ns) + "\"><InstanceID val=\"0\">";
    for (const auto& v : variables) out += "<" + v.first + " val=\"" + escapeXml(v.second) + "\"/>";
    out += "</InstanceID></Event>";
    return out;
}

long long parseUpnpTime(const std::string& t) {
    // H+:MM:SS[.fraction]
    size_t c1 = t.find(':');
    if (c1 == std::string::npos || c1 == 0 || c1 > 6) return -1;
    size_t c2 = t.find(':', c1 + 1);
    if (c2 != c1 + 3 || t.size() < c2 + 3) return -1;
    // No field of a time has more than nine digits: a longer run is refused
    // before it could overflow.
    auto digits = [&](size_t from, size_t to) {
        if (to - from > 18) return -1LL;
        long long v = 0;
        for (size_t i = from; i < to; ++i) {
            if (t[i] < '0' || t[i] > '9') return -1LL;
            v = v * 10 + (t[i] - '0');
        }
        return v;
    };
    long long h = digits(t[0] == '+' || t[0] == '-' ? 1 : 0, c1), m = digits(c1 + 1, c2), s = digits(c2 + 1, c2 + 3);
    if (t[0] == '-' || h < 0 || m < 0 || s < 0 || m > 59 || s > 59) return -1;
    long long ms = 0;
    size_t rest = c2 + 3;
    if (rest < t.size()) {
        if (t[rest] != '.') return -1;
        std::string frac = t.substr(rest + 1);
        size_t slash = frac.find('/');
        if (slash != std::string::npos) {
            // F0/F1: a fraction of a second.
            long long f0 = digits(rest + 1, rest + 1 + slash), f1 = digits(rest + 2 + slash, t.size());
            if (f0 < 0 || f1 <= 0 || f0 >= f1 || slash == 0 || slash > 9 || frac.size() - slash > 10) return -1;
            ms = f0 * 1000 / f1;
        } else {
            if (frac.empty() || frac.size() > 9) return -1;
            long long f = digits(rest + 1, t.size());
            if (f < 0) return -1;
            // First three digits are milliseconds.
            std::string three = (frac + "000").substr(0, 3);
            ms = std::stoll(three);
        }
    }
    return ((h * 60 + m) * 60 + s) * 1000 + ms;
}

}  // namespace upnp
}  // namespace camwifi
