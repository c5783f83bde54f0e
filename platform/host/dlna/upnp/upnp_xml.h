// The XML the real DLNA stack reads from and writes to renderers: device
// descriptions, SOAP action envelopes and answers, and the LastChange text of
// AVTransport events. Pure functions over text (parsed with ixml), so each
// parser can be fed anything by the tests and the fuzz targets.
#ifndef CAMWIFI_DLNA_UPNP_UPNP_XML_H
#define CAMWIFI_DLNA_UPNP_UPNP_XML_H

#include <string>
#include <utility>
#include <vector>

namespace camwifi {
namespace upnp {

// One service of a device, its URLs already made absolute.
struct ServiceInfo {
    std::string serviceType;  // "urn:schemas-upnp-org:service:AVTransport:1"
    std::string controlUrl;   // where SOAP actions are posted
    std::string eventSubUrl;  // where GENA subscriptions go (may be empty)
    std::string scpdUrl;      // the service description, as the device description writes it
};

// One device of a description (the root device or an embedded one).
struct DeviceInfo {
    std::string udn;           // "uuid:..."
    std::string deviceType;    // "urn:schemas-upnp-org:device:MediaRenderer:1"
    std::string friendlyName;
    std::string manufacturer;
    std::string modelName;
    std::string modelNumber;
    std::vector<ServiceInfo> services;
    // The service whose type starts with prefix (ignoring the version), or null.
    const ServiceInfo* service(const std::string& typePrefix) const;
};

// Every device of a description document fetched from location (the base
// for relative URLs unless the document names a URLBase). False when text
// is not a device description.
bool parseDeviceDescription(const std::string& text, const std::string& location, std::vector<DeviceInfo>* devices);

// Resolves ref against base ("http://h:p/dir/file"): absolute URLs stay,
// "/x" keeps base's host and port, "x" replaces base's last path segment.
std::string resolveUrl(const std::string& base, const std::string& ref);

// Text with &, <, >, " and ' escaped for XML content and attributes.
std::string escapeXml(const std::string& text);

// The SOAP envelope of one action with its in-arguments, in order.
std::string soapEnvelope(const std::string& serviceType, const std::string& action,
                         const std::vector<std::pair<std::string, std::string>>& arguments);

// A parsed SOAP answer: the out-arguments of "<action>Response", or a fault.
struct SoapAnswer {
    bool fault = false;
    int upnpErrorCode = 0;        // UPnPError/errorCode of a fault (0 when absent)
    std::string errorDescription; // UPnPError/errorDescription of a fault
    std::vector<std::pair<std::string, std::string>> arguments;  // name, text
    const std::string* argument(const std::string& name) const;
};
// False when body is neither an answer to action nor a fault.
bool parseSoapAnswer(const std::string& body, const std::string& action, SoapAnswer* out);

// The variables of instance 0 in an AVTransport / RenderingControl
// LastChange text: (name, val) pairs in document order, e.g.
// ("TransportState", "PLAYING"). Renderers that omit the instance element or
// use another id put their only instance first: the first instance counts
// when none has id 0. False when the text is not such an event.
bool parseLastChange(const std::string& text, std::vector<std::pair<std::string, std::string>>* variables);

// The variables of a GENA NOTIFY body (<e:propertyset><e:property><Name>
// value</Name>...): (name, text) pairs in order. False when body is not a
// property set.
bool parsePropertySet(const std::string& body, std::vector<std::pair<std::string, std::string>>* variables);

// The LastChange text of one instance's variables, in the plain form the
// control point hands on: <Event xmlns="ns"><InstanceID val="0"><Name
// val="value"/>...</InstanceID></Event>, values escaped.
std::string lastChangeText(const std::string& ns, const std::vector<std::pair<std::string, std::string>>& variables);

// "H:MM:SS", "H:MM:SS.mmm" or "H:MM:SS.F0/F1" in milliseconds; -1 when the
// text is not a time ("NOT_IMPLEMENTED", empty).
long long parseUpnpTime(const std::string& text);

}  // namespace upnp
}  // namespace camwifi

#endif
