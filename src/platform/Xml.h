#pragma once

namespace QENFx::Common::Xml {

class NodeList;

/// An attribute of an element; owned by the document.
class Attribute {
public:
    Attribute() = default;
    Attribute(const Attribute&) = delete;
    Attribute& operator=(const Attribute&) = delete;
    virtual ~Attribute() = default;

    virtual const char* getValue() const = 0;
};

/// An element; owned by the document.
class Node {
public:
    Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    virtual ~Node() = default;

    /// All elements of that name below this one, in document order; null when there is none.
    virtual const NodeList* getNodeListByName(const char* name) const = 0;

    /// Null when the element has no such attribute.
    virtual const Attribute* getAttributeByName(const char* name) const = 0;
};

/// Elements in document order; owned by the document.
class NodeList {
public:
    NodeList() = default;
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;
    virtual ~NodeList() = default;

    virtual int getNodeCount() const = 0;

    /// Null when the index is out of range.
    virtual const Node* getNode(int index) const = 0;
};

/// A document read as a whole. Everything that it hands out lives as long as the document.
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
    Content* content_;
};

}  // namespace QENFx::Common::Xml
