#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What clients and implementations of the node commands share: node types, lists of children, the last
/// error. Thread safety: one object is used by one thread at a time.
class VantrelNodeInterface {
  public:
    /// Kind of a node; its number travels on the wire.
    enum NodeType : int { CONTAINER = 0, CLIP = 1 };

    class NodeInfo;
    class NodeInfoList;

    VantrelNodeInterface() = default;
    VantrelNodeInterface(const VantrelNodeInterface&) = delete;
    VantrelNodeInterface& operator=(const VantrelNodeInterface&) = delete;
    virtual ~VantrelNodeInterface() = default;

    /// Why the last failing operation failed; empty at first. A success does not clear it.
    const std::string& lastError() const { return lastError_; }
    void setLastError(std::string text) { lastError_ = std::move(text); }

  private:
    std::string lastError_;
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

/// The children of a node in the server's order. It owns the reply that told them and 16 bytes a child, so
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
