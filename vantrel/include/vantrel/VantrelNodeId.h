#pragma once

#include "VantrelStr.h"

/// Identifies a node of a server's tree. The text is the server's own: applications keep it and hand it back,
/// but read nothing out of it.
///
/// Different objects may be used from different threads; one object by several threads only while none of
/// them changes it.
class VANTREL_API VantrelNodeId {
  public:
    VantrelNodeId();
    /// Null gives the empty id.
    VantrelNodeId(const char* id);
    VantrelNodeId(const VantrelStr& id);
    VantrelNodeId(const VantrelNodeId& other) = default;
    VantrelNodeId(VantrelNodeId&& other) noexcept = default;
    virtual ~VantrelNodeId();

    VantrelNodeId& operator=(const VantrelNodeId& other) = default;
    VantrelNodeId& operator=(VantrelNodeId&& other) noexcept = default;

    /// The text; never null. Valid until the id is changed or destroyed.
    const char* id() const noexcept { return id_.c_str(); }
    /// Null empties the id.
    void setId(const char* id);

    bool operator==(const VantrelNodeId& other) const noexcept { return id_ == other.id_; }
    bool operator!=(const VantrelNodeId& other) const noexcept { return id_ != other.id_; }
    /// Order of the texts' bytes.
    bool operator<(const VantrelNodeId& other) const noexcept { return id_ < other.id_; }

    unsigned long hash() const noexcept { return id_.hash(); }

  private:
    VantrelStr id_;
};

/// Identifies a frame of a clip, with the server's own text.
///
/// Different objects may be used from different threads; one object by several threads only while none of
/// them changes it.
class VANTREL_API VantrelFrameId {
  public:
    VantrelFrameId();
    /// Null gives the empty id.
    VantrelFrameId(const char* id);
    VantrelFrameId(const VantrelStr& id);
    VantrelFrameId(const VantrelFrameId& other) = default;
    VantrelFrameId(VantrelFrameId&& other) noexcept = default;
    virtual ~VantrelFrameId();

    VantrelFrameId& operator=(const VantrelFrameId& other) = default;
    VantrelFrameId& operator=(VantrelFrameId&& other) noexcept = default;

    /// The text; never null. Valid until the id is changed or destroyed.
    const char* id() const noexcept { return id_.c_str(); }
    /// Null empties the id.
    void setId(const char* id);

    bool operator==(const VantrelFrameId& other) const noexcept { return id_ == other.id_; }
    bool operator!=(const VantrelFrameId& other) const noexcept { return id_ != other.id_; }
    /// Order of the texts' bytes.
    bool operator<(const VantrelFrameId& other) const noexcept { return id_ < other.id_; }

    unsigned long hash() const noexcept { return id_.hash(); }

  private:
    VantrelStr id_;
};

namespace std {
template <>
struct hash<VantrelNodeId> {
    size_t operator()(const VantrelNodeId& id) const noexcept { return id.hash(); }
};

template <>
struct hash<VantrelFrameId> {
    size_t operator()(const VantrelFrameId& id) const noexcept { return id.hash(); }
};
}  // namespace std
