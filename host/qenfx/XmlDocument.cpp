#include "platform/Xml.h"

#include <deque>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <utility>

namespace QENFx::Common::Xml {

namespace {

class ElementAttribute final : public Attribute {
public:
    explicit ElementAttribute(pugi::xml_attribute attribute) : attribute_(attribute) {}
    const char* getValue() const override { return attribute_.value(); }

private:
    pugi::xml_attribute attribute_;
};

class Tree;

class Element final : public Node {
public:
    Element(Tree& tree, pugi::xml_node node) : tree_(tree), node_(node) {}

    const NodeList* getNodeListByName(const char* name) const override;
    const Attribute* getAttributeByName(const char* name) const override;

private:
    Tree& tree_;
    pugi::xml_node node_;
};

class ElementList final : public NodeList {
public:
    void Add(Tree& tree, pugi::xml_node node) { elements_.emplace_back(tree, node); }
    bool empty() const { return elements_.empty(); }

    int getNodeCount() const override { return static_cast<int>(elements_.size()); }
    const Node* getNode(int index) const override {
        return index < 0 || index >= getNodeCount() ? nullptr : &elements_[static_cast<std::size_t>(index)];
    }

private:
    std::deque<Element> elements_;
};

/// The parsed document and everything that was handed out of it. Asking twice gives the same objects, so that a caller
/// in a loop does not make the document grow.
class Tree {
public:
    bool Load(const char* text);
    pugi::xml_node root() const { return document_; }
    const NodeList* FindElements(pugi::xml_node below, const char* name);
    const Attribute* FindAttribute(pugi::xml_node element, const char* name);

private:
    pugi::xml_document document_;
    std::map<std::pair<std::size_t, std::string>, ElementList> lists_;
    std::map<std::size_t, ElementAttribute> attributes_;
};

bool Tree::Load(const char* text) {
    if (text == nullptr) {
        return false;
    }
    // Read as a fragment, so that what stands beside the root element is seen and refused rather than passed over.
    if (!document_.load_string(text, pugi::parse_default | pugi::parse_fragment)) {
        return false;
    }
    int roots = 0;
    for (const pugi::xml_node child : document_.children()) {
        const bool isText = child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata;
        roots += child.type() == pugi::node_element ? 1 : 0;
        if (isText || roots > 1) {
            return false;
        }
    }
    return roots == 1;
}

const NodeList* Tree::FindElements(pugi::xml_node below, const char* name) {
    const auto [entry, isNew] = lists_.try_emplace({below.hash_value(), name});
    ElementList& list = entry->second;
    if (isNew) {
        // Steps along the links instead of calling itself: the depth is the sender's choice.
        for (pugi::xml_node node = below.first_child(); node;) {
            if (node.type() == pugi::node_element && entry->first.second == node.name()) {
                list.Add(*this, node);
            }
            pugi::xml_node next = node.first_child();
            while (!next && node != below) {
                next = node.next_sibling();
                node = node.parent();
            }
            node = next;
        }
    }
    return list.empty() ? nullptr : &list;
}

const Attribute* Tree::FindAttribute(pugi::xml_node element, const char* name) {
    const pugi::xml_attribute attribute = element.attribute(name);
    return attribute ? &attributes_.try_emplace(attribute.hash_value(), attribute).first->second : nullptr;
}

const NodeList* Element::getNodeListByName(const char* name) const {
    return tree_.FindElements(node_, name);
}

const Attribute* Element::getAttributeByName(const char* name) const {
    return tree_.FindAttribute(node_, name);
}

}  // namespace

struct XmlDocument::Content {
    Tree tree;
};

XmlDocument::XmlDocument() : content_(std::make_unique<Content>().release()) {}

XmlDocument::~XmlDocument() {
    const std::unique_ptr<Content> owned(content_);
}

bool XmlDocument::LoadXML(const char* text) {
    auto loaded = std::make_unique<Content>();
    const bool isDocument = loaded->tree.Load(text);
    if (!isDocument) {
        loaded = std::make_unique<Content>();
    }
    const std::unique_ptr<Content> before(std::exchange(content_, loaded.release()));
    return isDocument;
}

const NodeList* XmlDocument::getNodeListByName(const char* name) const {
    return content_->tree.FindElements(content_->tree.root(), name);
}

}  // namespace QENFx::Common::Xml
