#include "platform/Xml.h"

#include <gtest/gtest.h>

#include <string>

using namespace QENFx::Common::Xml;

namespace {

std::string Attribute(const Node* node, const char* name) {
    const auto* attribute = node == nullptr ? nullptr : node->getAttributeByName(name);
    return attribute == nullptr ? "(none)" : attribute->getValue();
}

// Faults: only direct children found, another order than the document's, elements found that lie outside the node, an
// entity left as it is.
TEST(XmlTest, FindsElementsBelowANode) {
    XmlDocument document;
    ASSERT_TRUE(
        document.LoadXML("<?xml version=\"1.0\"?><!-- c --><r><model name='A&amp;B'><g><file_info name='1'/></g>"
                         "<file_info name='2' x=''/></model><model name='N62V'/><file_info name='3'/></r>\n"));
    const NodeList* models = document.getNodeListByName("model");
    ASSERT_NE(models, nullptr);
    ASSERT_EQ(models->getNodeCount(), 2);
    EXPECT_EQ(models->getNode(-1), nullptr);
    EXPECT_EQ(models->getNode(2), nullptr);
    EXPECT_EQ(Attribute(models->getNode(0), "name"), "A&B");
    EXPECT_EQ(Attribute(models->getNode(1), "name"), "N62V");
    const NodeList* files = models->getNode(0)->getNodeListByName("file_info");
    ASSERT_NE(files, nullptr);
    ASSERT_EQ(files->getNodeCount(), 2);
    EXPECT_EQ(Attribute(files->getNode(0), "name"), "1");
    EXPECT_EQ(Attribute(files->getNode(1), "x"), "");
    EXPECT_EQ(Attribute(files->getNode(1), "y"), "(none)");
    EXPECT_EQ(models->getNode(1)->getNodeListByName("file_info"), nullptr);
    EXPECT_EQ(document.getNodeListByName("file_info")->getNodeCount(), 3);
    EXPECT_EQ(document.getNodeListByName("r")->getNodeCount(), 1);
}

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
    EXPECT_EQ(Attribute(document.getNodeListByName("model")->getNode(0), "name"), "deep");
    EXPECT_EQ(document.getNodeListByName("d")->getNodeCount(), kDepth);
}

}  // namespace
