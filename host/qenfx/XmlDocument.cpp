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
    const char* Value() const { return attribute_.value(); }

private:
    pugi::xml_attribute attribute_;
};

class Tree;

class Element final : public Node {
public:
    Element(Tree& tree, pugi::xml_node node) : tree_(tree), node_(node) {}

    const NodeList* Below(const char* name) const;
    const Attribute* AttributeOf(const char* name) const;

private:
    Tree& tree_;
    pugi::xml_node node_;
};

class ElementList final : public NodeList {
public:
    void Add(Tree& tree, pugi::xml_node node) { elements_.emplace_back(tree, node); }
    bool empty() const { return elements_.empty(); }

    int Count() const { return static_cast<int>(elements_.size()); }
    const Node* At(int index) const {
        return index < 0 || index >= Count() ? nullptr : &elements_[static_cast<std::size_t>(index)];
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

const NodeList* Element::Below(const char* name) const {
    return tree_.FindElements(node_, name);
}

const Attribute* Element::AttributeOf(const char* name) const {
    return tree_.FindAttribute(node_, name);
}

}  // namespace

const char* Attribute::getValue() const {
    return static_cast<const ElementAttribute*>(this)->Value();
}

const NodeList* Node::getNodeListByName(const char* name) const {
    return static_cast<const Element*>(this)->Below(name);
}

const Attribute* Node::getAttributeByName(const char* name) const {
    return static_cast<const Element*>(this)->AttributeOf(name);
}

int NodeList::getNodeCount() const {
    return static_cast<const ElementList*>(this)->Count();
}

const Node* NodeList::getNode(int index) const {
    return static_cast<const ElementList*>(this)->At(index);
}

struct XmlDocument::Content {
    Tree tree;
};

XmlDocument::XmlDocument() : fields_{std::make_unique<Content>().release(), {}} {}

XmlDocument::~XmlDocument() {
    const std::unique_ptr<Content> owned(fields_.content);
}

bool XmlDocument::LoadXML(const char* text) {
    auto loaded = std::make_unique<Content>();
    const bool isDocument = loaded->tree.Load(text);
    if (!isDocument) {
        loaded = std::make_unique<Content>();
    }
    const std::unique_ptr<Content> before(std::exchange(fields_.content, loaded.release()));
    return isDocument;
}

const NodeList* XmlDocument::getNodeListByName(const char* name) const {
    Tree& tree = fields_.content->tree;
    return tree.FindElements(tree.root(), name);
}

}  // namespace QENFx::Common::Xml
