#include "platform/Xml.h"

#include <gtest/gtest.h>

#include <string>

using namespace QENFx::Common::Xml;

namespace {

// Fault: a walk that calls itself once a level, and a sender who chooses the depth.
TEST(XmlTest, DepthIsTheSendersChoice) {
    constexpr int kDepth = 100000;
    std::string text;
    for (int i = 0; i < kDepth; ++i) {
        text += "<d>";
    }
    text += "<model name='deep'/>";
    for (int i = 0; i < kDepth; ++i) {
        text += "</d>";
    }
    XmlDocument document;
    ASSERT_TRUE(document.LoadXML(text.c_str()));
    EXPECT_STREQ(document.getNodeListByName("model")->getNode(0)->getAttributeByName("name")->getValue(), "deep");
    EXPECT_EQ(document.getNodeListByName("d")->getNodeCount(), kDepth);
}

}  // namespace
