#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What clients and implementations of the node commands share: node types and lists of children.
struct VantrelNodeInterface {
    /// Kind of a node; its number travels on the wire.
    enum NodeType : int { CONTAINER = 0, CLIP = 1 };

    /// All that a server says of a node's type.
    struct Type {
        NodeType kind = CONTAINER;
        int extended = 0;  ///< the server's own number of `text`
        std::string text;
    };

    class NodeInfo;
    class NodeInfoList;
};

/// One child: views into the list that it comes from, valid until that list changes, moves or goes away.
class VantrelNodeInterface::NodeInfo {
  public:
    NodeInfo(std::string_view displayName, std::string_view id) : displayName_(displayName), id_(id) {}

    /// In the process's locale.
    std::string_view displayName() const { return displayName_; }
    std::string_view id() const { return id_; }

  private:
    std::string_view displayName_;
    std::string_view id_;
};

/// The children of a node in the server's order. It owns the reply that they came in and 16 bytes a child, so
/// that a list of 100,000 children costs little more than its reply. Copies and moves are independent lists.
class VantrelNodeInterface::NodeInfoList {
  public:
    /// Longest reply that a list can index, in bytes.
    static constexpr std::size_t MAX_REPLY_BYTES = 0x7fffffff;

    std::size_t size() const { return children_.size(); }
    bool isEmpty() const { return children_.empty(); }
    /// `index` must be below `size()`.
    NodeInfo operator[](std::size_t index) const;
    void clear();

    // --- Filling, done by the reply parsers ---

    /// Empties the list and takes a reply, at most MAX_REPLY_BYTES long, whose parts `add` then names.
    void reset(std::string reply);
    const std::string& reply() const { return reply_; }
    /// Appends a child. `id` lies within `reply()`, and so does `displayName` unless it was converted: any
    /// other text is copied.
    void add(std::string_view id, std::string_view displayName);

  private:
    struct Child {
        std::uint32_t idStart;
        std::uint32_t idLength;
        std::uint32_t nameStart;  ///< with CONVERTED: within converted_
        std::uint32_t nameLength;
    };
    static constexpr std::uint32_t CONVERTED = 0x80000000u;

    void grow(std::size_t parsedBytes);

    std::string reply_;
    std::string converted_;
    std::vector<Child> children_;
};
