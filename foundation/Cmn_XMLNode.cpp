// The node tree is our own; pugixml is used only to write it, so its escaping rules are the
// one place where text becomes XML, and no pugixml type appears in a header.
#include "Cmn_XMLNode.h"

#include <ostream>
#include <sstream>

#include <pugixml.hpp>

#include "Cmn_String.h"

namespace {

bool IsNameStart(unsigned char iChar) {
    return (iChar >= 'A' && iChar <= 'Z') || (iChar >= 'a' && iChar <= 'z') || iChar == '_' || iChar == ':' || iChar >= 0x80;
}

bool IsNameChar(unsigned char iChar) {
    return IsNameStart(iChar) || (iChar >= '0' && iChar <= '9') || iChar == '-' || iChar == '.';
}

std::string ValidXMLName(const std::string& iName) {
    std::string result;
    if (iName.empty() || !IsNameStart(static_cast<unsigned char>(iName[0]))) result += '_';
    for (char c : iName) result += IsNameChar(static_cast<unsigned char>(c)) ? c : '_';
    return result;
}

void Build(const Cmn_XMLNode& iNode, pugi::xml_node ioParent) {
    pugi::xml_node element = ioParent.append_child(ValidXMLName(iNode.GetName()).c_str());
    if (iNode.HasValue()) element.append_child(pugi::node_pcdata).set_value(iNode.GetValue().c_str());
    for (const Cmn_XMLNodePtr& child : iNode.GetChildren()) Build(*child, element);
}

Cmn_XMLNodePtr CreateWithValue(const char* iName, std::string iValue) {
    Cmn_XMLNodePtr node = Cmn_CreateXMLNode(iName);
    node->SetValue(std::move(iValue));
    return node;
}

}  // namespace

void Cmn_XMLNode::SetValue(std::string iValue) {
    mValue = std::move(iValue);
    mHasValue = true;
}

void Cmn_XMLNode::AppendChild(const Cmn_XMLNodePtr& iChild) {
    if (iChild) mChildren.push_back(iChild);
}

Cmn_XMLNodePtr Cmn_XMLNode::FindChild(const std::string& iName) const {
    for (const Cmn_XMLNodePtr& child : mChildren)
        if (child->GetName() == iName) return child;
    return Cmn_XMLNodePtr();
}

void Cmn_XMLNode::Write(std::ostream& ioStream) const {
    pugi::xml_document document;
    Build(*this, document);
    document.save(ioStream, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
}

std::string Cmn_XMLNode::ToString() const {
    std::ostringstream stream;
    Write(stream);
    return stream.str();
}

std::ostream& operator<<(std::ostream& ioStream, const Cmn_XMLNode& iNode) {
    iNode.Write(ioStream);
    return ioStream;
}

Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName) {
    return Cmn_XMLNodePtr::Adopt(new Cmn_XMLNode(iName ? iName : ""));
}

Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName, const std::string& iValue, int) {
    return CreateWithValue(iName, iValue);
}

Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName, const int& iValue, int) {
    return CreateWithValue(iName, Cmn_Int32ToString(iValue));
}

Cmn_XMLNodePtr Cmn_CreateXMLNode(const char* iName, const signed char& iValue, int) {
    return CreateWithValue(iName, Cmn_Int32ToString(iValue));
}
