#include "ModeServer/MSEventVariable.h"

#include "Dlna/DlnaLog.h"
#include "ModeServer/ModeServerTypes.h"

void MSEventVariable::deleteItem(void* item) { delete static_cast<MSEventVariable*>(item); }

void EventMsgGenerator::createNotifyXMLBody(DMSCDSList* variables, std::string& out) {
    // The declaration ends in a lone carriage return: what phones have always
    // received.
    out += "<?xml version=\"1.0\"?>\r<e:propertyset>";
    const unsigned int count = variables ? variables->GetNumberOfItems() : 0;
    for (unsigned int i = 0; i < count; ++i) {
        const auto* v = static_cast<const MSEventVariable*>(variables->GetItemAt(i));
        if (v == nullptr) continue;
        out += "<e:property><" + v->getVarName() + ">" + v->getVarValue() + "</" + v->getVarName() +
               "></e:property>";
    }
    out += "</e:propertyset>";
}

namespace {

// "CurrentMode" text of the event: the mode's name; an unknown mode reuses
// the HTTP status fallback text, as phones have always seen it.
const char* currentModeText(int mode) {
    return (mode >= MS_MODE_IDLE && mode <= MS_MODE_PHONE_ARCHIVE) ? ModeServerModeName(mode) : "Unknown Status Code";
}

void add(DMSCDSList* variables, const char* name, const std::string& value) {
    auto* v = new MSEventVariable(name, value);
    if (variables->AddItem(v) != 0) delete v;
}

}  // namespace

void MSBuildModeVariables(int mode, const std::string& descriptionUrl, unsigned short spServerPort,
                          DMSCDSList* variables) {
    add(variables, "CurrentMode", currentModeText(mode));
    if (mode == 1 || mode == 2) {
        add(variables, "DescriptionURL", descriptionUrl);
    } else if (mode == 4) {
        const std::string port = std::to_string(spServerPort);
        DLNA_LOG_I(DLNA_MS_TAG, "SPServerPort = %s", port.c_str());
        add(variables, "SPServerPort", port);
    }
}
