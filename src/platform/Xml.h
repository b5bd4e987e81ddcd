#pragma once

#include "platform/Object.h"

namespace QENFx::Common::Xml {

class NodeList;

/// An attribute of an element; owned by the document.
class Attribute {
public:
    Attribute(const Attribute&) = delete;
    Attribute& operator=(const Attribute&) = delete;

    /// Never null.
    const char* getValue() const;

protected:
    Attribute() = default;
    ~Attribute() = default;
};

/// An element; owned by the document.
class Node {
public:
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// All elements of that name below this one, in document order; null when there is none.
    const NodeList* getNodeListByName(const char* name) const;

    /// Null when the element has no such attribute.
    const Attribute* getAttributeByName(const char* name) const;

protected:
    Node() = default;
    ~Node() = default;
};

/// Elements in document order; owned by the document.
class NodeList {
public:
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;

    int getNodeCount() const;

    /// Null when the index is out of range.
    const Node* getNode(int index) const;

protected:
    NodeList() = default;
    ~NodeList() = default;
};

/// A document read as a whole, by one thread. Everything that it hands out lives as long as the document, or until the
/// next LoadXML; reading it cannot fail.
class XmlDocument {
public:
    XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument();

    /// False when the text is not a well-formed document; the document is empty then.
    bool LoadXML(const char* text);

    /// All elements of that name, in document order; null when there is none.
    const NodeList* getNodeListByName(const char* name) const;

private:
    struct Content;
    Fields<Content, 256> fields_;
};

}  // namespace QENFx::Common::Xml
