// XML of time values: <name><Count>-12</Count><Kind>Ticks</Kind></name>. The count is the
// signed 64-bit count in decimal; the kind is "Samples" or "Ticks" (an unknown kind word is
// written as its number, so a damaged value still dumps).
#include "Cmn_XMLNode.h"
#include "Time_Typed.h"

namespace {

std::string KindText(Time_EType iType) {
    switch (iType) {
        case kTime_Samples: return "Samples";
        case kTime_Ticks: return "Ticks";
    }
    return std::to_string(static_cast<int32_t>(iType));
}

Cmn_XMLNodePtr TimeNode(const char* iName, int64_t iCount, Time_EType iType) {
    Cmn_XMLNodePtr node = Cmn_CreateXMLNode(iName);
    node->AppendChild(Cmn_CreateXMLNode("Count", std::to_string(iCount), 0));
    node->AppendChild(Cmn_CreateXMLNode("Kind", KindText(iType), 0));
    return node;
}

}  // namespace

Cmn_XMLNodePtr Time_Typed::GetAsXML(const char* iName) const { return TimeNode(iName, mCount, mType); }

Cmn_XMLNodePtr Time_TypedLength::GetAsXML(const char* iName) const { return TimeNode(iName, mCount, mType); }
