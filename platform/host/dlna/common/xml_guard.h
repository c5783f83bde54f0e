// What libupnp's XML parser (ixml) is never handed, whoever reads with it:
// the real stack's network input and the configuration files alike.
// - ixml reads past the end of its buffer on a character reference cut short
//   ("&#" with no digits and ';' after it, as at the end of a truncated
//   event), and a NUL byte inside the text cuts the buffer it sees exactly
//   there. XML holds neither.
// - ixml frees a document by recursing over children and siblings, so a flat
//   list of a few hundred thousand elements would exhaust a thread's stack.
//   Descriptions, SOAP messages, events and the configuration hold a few
//   dozen elements; text with more tags than kXmlMaxTags is refused.
#ifndef CAMWIFI_HOST_DLNA_XML_GUARD_H
#define CAMWIFI_HOST_DLNA_XML_GUARD_H

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <string>

namespace host {
namespace xml {

constexpr size_t kXmlMaxTags = 4096;

// True when text may be handed to ixml.
inline bool safeForIxml(const std::string& text) {
    if (std::count(text.begin(), text.end(), '<') > static_cast<std::ptrdiff_t>(kXmlMaxTags)) return false;
    if (text.find('\0') != std::string::npos) return false;
    for (size_t at = text.find("&#"); at != std::string::npos; at = text.find("&#", at + 2)) {
        size_t i = at + 2;
        const bool hex = i < text.size() && text[i] == 'x';
        if (hex) ++i;
        const size_t digits = i;
        while (i < text.size() && (hex ? isxdigit(static_cast<unsigned char>(text[i]))
                                       : isdigit(static_cast<unsigned char>(text[i]))))
            ++i;
        if (i == digits || i >= text.size() || text[i] != ';') return false;
    }
    return true;
}

}  // namespace xml
}  // namespace host

#endif
