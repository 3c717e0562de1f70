#include "Cmn_XMLNode.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include <pugixml.hpp>

#include "Time_Typed.h"

TEST(Cmn_XMLNode, ChildrenKeepAppendOrderAndValues) {
    Cmn_XMLNodePtr root = Cmn_CreateXMLNode("Chunk");
    root->AppendChild(Cmn_CreateXMLNode("Name", std::string("bass"), 0));
    root->AppendChild(Cmn_CreateXMLNode("Count", 3, 0));
    const signed char small = -7;  // printed as a number, not a character
    root->AppendChild(Cmn_CreateXMLNode("Small", small, 0));
    root->AppendChild(Cmn_XMLNodePtr());  // a null child is ignored
    ASSERT_EQ(root->GetChildCount(), 3u);
    EXPECT_FALSE(root->HasValue());
    EXPECT_EQ(root->FindChild("Count"), root->GetChild(1));
    EXPECT_FALSE(root->FindChild("Missing"));
    EXPECT_EQ(root->ToString(), "<Chunk>\n  <Name>bass</Name>\n  <Count>3</Count>\n  <Small>-7</Small>\n</Chunk>\n");
}

TEST(Cmn_XMLNode, OutputIsWellFormedForHostileNamesAndText) {
    Cmn_XMLNodePtr root = Cmn_CreateXMLNode("1 bad<name>");
    root->AppendChild(Cmn_CreateXMLNode("", std::string("a<b & \"c\" ]]> d"), 0));
    std::ostringstream stream;
    stream << *root;
    EXPECT_EQ(stream.str(), root->ToString());
    pugi::xml_document parsed;
    ASSERT_TRUE(parsed.load_string(stream.str().c_str())) << stream.str();
    EXPECT_STREQ(parsed.first_child().name(), "_1_bad_name_");
    EXPECT_STREQ(parsed.first_child().first_child().child_value(), "a<b & \"c\" ]]> d");
}

TEST(Cmn_XMLNode, SharedNodesLiveWhileReferenced) {
    Cmn_XMLNodePtr child = Cmn_CreateXMLNode("Leaf", std::string("x"), 0);
    Cmn_CreateXMLNode("Root")->AppendChild(child);  // the root goes, and gives its reference back
    EXPECT_EQ(child->GetRefCount(), 1);
    Cmn_XMLNodePtr moved = std::move(child);
    EXPECT_FALSE(child);
    EXPECT_EQ(moved->GetRefCount(), 1);
}

TEST(Cmn_XMLNode, TimeValuesDumpCountAndKind) {
    EXPECT_EQ(Time_Typed(-12, kTime_Samples).GetAsXML("Start")->ToString(),
              "<Start>\n  <Count>-12</Count>\n  <Kind>Samples</Kind>\n</Start>\n");
    Cmn_XMLNodePtr length = Time_TypedLength(std::numeric_limits<int64_t>::max(), kTime_Ticks).GetAsXML("Length");
    EXPECT_EQ(length->FindChild("Count")->GetValue(), "9223372036854775807");
    EXPECT_EQ(length->FindChild("Kind")->GetValue(), "Ticks");
}
