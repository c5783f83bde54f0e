// The mode-change event a phone receives: its variables (name and value) and
// the property-set body that carries them.
#ifndef CAMWIFI_MS_EVENT_VARIABLE_H
#define CAMWIFI_MS_EVENT_VARIABLE_H

#include <string>

#include "zeb_stack.h"

class MSEventVariable {
public:
    MSEventVariable(const std::string& name, const std::string& value) : m_sName(name), m_sValue(value) {}

    void setVarName(const std::string& name) { m_sName = name; }
    const std::string& getVarName() const { return m_sName; }
    void setVarValue(const std::string& value) { m_sValue = value; }
    const std::string& getVarValue() const { return m_sValue; }

    // Deleter for DMSCDSList::RemoveAllListItem: the list owns its variables.
    static void deleteItem(void* item);

private:
    std::string m_sName;
    std::string m_sValue;
};

class EventMsgGenerator {
public:
    // Appends the property-set body for the variables (MSEventVariable*, in
    // list order) to out. Values are written as they are, unescaped.
    static void createNotifyXMLBody(DMSCDSList* variables, std::string& out);
};

// The variables of a mode change to mode, in the order they are sent:
// "CurrentMode" always, then "DescriptionURL" (modes 1 and 2) or
// "SPServerPort" (mode 4). The list owns them (MSEventVariable::deleteItem).
void MSBuildModeVariables(int mode, const std::string& descriptionUrl, unsigned short spServerPort,
                          DMSCDSList* variables);

#endif
