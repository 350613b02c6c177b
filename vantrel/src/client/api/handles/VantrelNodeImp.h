#pragma once

#include <vantrel/VantrelNodeHandle.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "VantrelNodeInterface.h"
#include "VantrelTreeEdits.h"

class VantrelServerImp;

/// What stands behind a node handle: the node's id, the server handle through which requests go, and the
/// memory of what the server has said about the node. Not locked: requests take the server's lock.
/// Every operation returns true on success and leaves the reason of a failure with the server handle.
class VantrelNodeImp {
  public:
    VantrelNodeImp(const VantrelServerHandle* server, const VantrelNodeId& id);

    const VantrelNodeId& id() const { return id_; }
    void setId(const VantrelNodeId& id);
    /// What a node without a server refers to: a handle that names none.
    static const VantrelServerHandle& nowhere();
    const VantrelServerHandle& server() const { return server_ ? *server_ : nowhere(); }
    void setServer(const VantrelServerHandle& server);
    /// What is wrong with an argument becomes the server handle's last error.
    void setInvalid(const std::string& text) const;

    void pointAt(const VantrelServerHandle& server, const VantrelNodeId& id);
    /// Points `child` at one of `children`, whose display name it then knows. It may be this very node.
    void pointAtChild(std::size_t index, VantrelNodeImp& child) const;

    /// False, with the last error set, when `index` is not below `size`.
    [[nodiscard]] bool checkIndex(int index, std::size_t size) const;

    // Each answers from what is known, else asks the server. The pointer is null on failure; it is valid
    // until the node changes or is asked again.
    const VantrelNodeInterface::NodeInfoList* children();
    /// The same, asked for again when nodes were destroyed since: an application that counts them starts
    /// over.
    const VantrelNodeInterface::NodeInfoList* childrenToCount();
    const std::vector<VantrelFrameId>* frames();
    const std::vector<std::string>* framePaths();
    const std::vector<std::string>* metaDataStreams();
    const VantrelClipFormat* clipFormat();
    const char* displayName();

    using Type = VantrelNodeInterface::Type;
    const Type* type();

    [[nodiscard]] bool parent(VantrelNodeId& parent);
    [[nodiscard]] bool canCreate(const char* extendedType, bool& can);
    [[nodiscard]] bool create(const char* name, VantrelNodeInterface::NodeType kind, const char* extendedType,
                              const char* stream, const char* metaData, const VantrelClipFormat& format,
                              VantrelNodeId& created);
    [[nodiscard]] bool duplicate(const VantrelNodeId& source, const char* name, VantrelNodeId& copy);
    [[nodiscard]] bool rename(const char* name);
    [[nodiscard]] bool destroy();

    [[nodiscard]] bool getMetaData(const char* stream, const char* filter, int depth, std::string& metaData);
    [[nodiscard]] bool setMetaData(const char* stream, const char* metaData);

    [[nodiscard]] bool setNumFrames(unsigned count);
    [[nodiscard]] bool linkToFrames(const std::vector<std::string>& paths);
    [[nodiscard]] bool streamId(VantrelStr& streamId);
    [[nodiscard]] bool getNbReadAheads(int& count);
    [[nodiscard]] bool activateReadAhead();
    void setClipFormat(const VantrelClipFormat& format);

    [[nodiscard]] bool readFrame(int index, const void* request, unsigned long requestSize, void* buffer,
                                 unsigned long size, bool hintReadAhead);
    [[nodiscard]] bool writeFrame(int index, const void* data, unsigned long size);

  private:
    VantrelServerImp* serverImp() const;
    /// Called before every use of what is known: the server handle may have been assigned since.
    void forgetReplacedServer();
    [[nodiscard]] bool fetchClipFormat();
    void forgetFrames();
    void forgetAll();

    VantrelNodeId id_;
    const VantrelServerHandle* server_;

    std::uint64_t serverSerial_ = 0;  ///< of the server that said what follows; 0: nothing was said
    // What the server has said; unset means stale.
    VantrelNodeInterface::NodeInfoList children_;
    bool childrenFresh_ = false;
    VantrelTreeEdits::Count childrenAsOf_ = 0;
    std::optional<std::vector<VantrelFrameId>> frames_;
    std::optional<std::vector<std::string>> framePaths_;
    std::optional<std::vector<std::string>> metaDataStreams_;
    std::optional<VantrelClipFormat> clipFormat_;
    std::optional<Type> type_;
    std::optional<std::string> displayName_;
    int readAheads_ = 0;
};
