// One phone registered with the mode server: who it is (user agent, MAC
// address) and where it wants its mode-change events (its CALLBACK URL and
// the host and port taken from it).
#ifndef CAMWIFI_MS_DEVICE_INFO_H
#define CAMWIFI_MS_DEVICE_INFO_H

#include <string>

class MSDeviceInfo {
public:
    MSDeviceInfo(const std::string& userAgent, const std::string& callbackUrl, const std::string& mac);
    // The same without a MAC address (left empty).
    MSDeviceInfo(const std::string& userAgent, const std::string& callbackUrl);

    // The port in url: the decimal text between its first ':' and the first
    // '/' after that; 0 (no port, with a log line) when either is missing. A
    // phone registered without a port is never sent a NOTIFY.
    int getPort(std::string& url);

    std::string m_sUserAgent;    // the phone's user agent (after "ORB_MODE_", lower-cased)
    std::string m_sMacAddr;      // "0a:1b:2c:3d:4e:5f"; empty when the ARP cache did not know it
    std::string m_sCallbackUrl;  // the CALLBACK header as received, e.g. "<http://h:p/path>"
    std::string m_sHost;         // event receiver host; empty when the URL has no <...>
    int m_iPort = 0;             // event receiver port; 0 when the URL gave none

private:
    void parseCallbackUrl();
};

#endif
