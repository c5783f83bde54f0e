// The NOTIFY body builder on any variables: names and values cut from the
// input at NUL bytes, plus the mode variables for a mode, description URL
// and push server port taken from the input. The body is the fixed frame
// around one element per variable, values unescaped.
#include <cstdint>
#include <string>
#include <vector>

#include "ModeServer/MSEventVariable.h"
#include "fuzz_support.h"

namespace {

const std::string kHead = "<?xml version=\"1.0\"?>\r<e:propertyset>";
const std::string kTail = "</e:propertyset>";

std::string element(const std::string& name, const std::string& value) {
    return "<e:property><" + name + ">" + value + "</" + name + "></e:property>";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string all(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> parts;
    for (size_t begin = 0;;) {
        const size_t end = all.find('\0', begin);
        parts.push_back(all.substr(begin, end == std::string::npos ? std::string::npos : end - begin));
        if (end == std::string::npos || parts.size() >= 64) break;
        begin = end + 1;
    }
    DMSCDSList variables;
    std::string expected = kHead;
    for (size_t i = 0; i + 1 < parts.size(); i += 2) {
        auto* v = new MSEventVariable(parts[i], parts[i + 1]);
        FUZZ_CHECK(variables.AddItem(v) == 0);
        expected += element(parts[i], parts[i + 1]);
    }
    expected += kTail;
    std::string body = "kept";
    EventMsgGenerator::createNotifyXMLBody(&variables, body);
    FUZZ_CHECK(body == "kept" + expected);  // appended, never replaced
    variables.RemoveAllListItem(MSEventVariable::deleteItem);
    FUZZ_CHECK(variables.GetNumberOfItems() == 0);

    // A mode change's variables, for a mode and port from the first bytes.
    const int mode = size > 0 ? static_cast<int8_t>(data[0]) : 0;
    const unsigned short port = size > 2 ? static_cast<unsigned short>((data[1] << 8) | data[2]) : 0;
    DMSCDSList modeVariables;
    MSBuildModeVariables(mode, parts.back(), port, &modeVariables);
    const unsigned int count = modeVariables.GetNumberOfItems();
    FUZZ_CHECK(count == ((mode == 1 || mode == 2 || mode == 4) ? 2u : 1u));
    const auto* current = static_cast<const MSEventVariable*>(modeVariables.GetItemAt(0));
    FUZZ_CHECK(current != nullptr && current->getVarName() == "CurrentMode");
    if (mode == 4) {
        const auto* sp = static_cast<const MSEventVariable*>(modeVariables.GetItemAt(1));
        FUZZ_CHECK(sp->getVarName() == "SPServerPort" && sp->getVarValue() == std::to_string(port));
    }
    std::string modeBody;
    EventMsgGenerator::createNotifyXMLBody(&modeVariables, modeBody);
    FUZZ_CHECK(modeBody.compare(0, kHead.size(), kHead) == 0);
    FUZZ_CHECK(modeBody.size() >= kHead.size() + kTail.size() &&
               modeBody.compare(modeBody.size() - kTail.size(), kTail.size(), kTail) == 0);
    modeVariables.RemoveAllListItem(MSEventVariable::deleteItem);
    EventMsgGenerator::createNotifyXMLBody(nullptr, modeBody);  // no list: the empty frame
    return 0;
}
