#include "ModeServer/MSDeviceInfo.h"

#include "Dlna/DlnaLog.h"
#include "SP/http.h"

MSDeviceInfo::MSDeviceInfo(const std::string& userAgent, const std::string& callbackUrl, const std::string& mac)
    : m_sUserAgent(userAgent), m_sMacAddr(mac), m_sCallbackUrl(callbackUrl) {
    DLNA_LOG_I(DLNA_MS_TAG, "m_sUserAgent = [%s]", m_sUserAgent.c_str());
    DLNA_LOG_I(DLNA_MS_TAG, "m_sCallbackUrl = [%s]", m_sCallbackUrl.c_str());
    DLNA_LOG_I(DLNA_MS_TAG, "m_sMacAddr = [%s]", m_sMacAddr.c_str());
    parseCallbackUrl();
}

MSDeviceInfo::MSDeviceInfo(const std::string& userAgent, const std::string& callbackUrl)
    : MSDeviceInfo(userAgent, callbackUrl, "") {}

void MSDeviceInfo::parseCallbackUrl() {
    const size_t open = m_sCallbackUrl.find('<');
    if (open == std::string::npos) {
        DLNA_LOG_E(DLNA_MS_TAG, "can't find '<'");
        return;
    }
    const size_t close = m_sCallbackUrl.find('>', open + 1);
    if (close == std::string::npos) {
        DLNA_LOG_E(DLNA_MS_TAG, "can't find '>'");
        return;
    }
    std::string url = m_sCallbackUrl.substr(open + 1, close - open - 1);
    const size_t scheme = url.find("http://");
    if (scheme != std::string::npos) url.erase(scheme, 7);
    const size_t colon = url.find(':');
    if (colon != std::string::npos) {
        m_sHost = url.substr(0, colon);
        m_iPort = getPort(url);
    } else {
        // No port to read: the phone gets no usable receiver (a NOTIFY to
        // 0.0.0.0 port 0 is refused before any connection is tried).
        m_sHost = "0.0.0.0";
    }
    DLNA_LOG_I(DLNA_MS_TAG, "[%s]:[%d]", m_sHost.c_str(), m_iPort);
}

int MSDeviceInfo::getPort(std::string& url) {
    const size_t colon = url.find(':');
    if (colon == std::string::npos) {
        DLNA_LOG_E(DLNA_MS_TAG, "can't find ':'");
        return 0;
    }
    const size_t slash = url.find('/', colon + 1);
    if (slash == std::string::npos) {
        DLNA_LOG_E(DLNA_MS_TAG, "can't find '/'");
        return 0;
    }
    return http::scanDecimal(url.substr(colon + 1, slash - colon - 1));
}
