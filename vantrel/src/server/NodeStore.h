#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CoMutex.h"
#include "NodeChange.h"
#include "RemoteFiles.h"
#include "SqliteDatabase.h"
#include "StorageFile.h"

namespace vantreld {

struct FrameKey;

/// The tree of nodes with their metadata, clip formats and frames, kept under one directory: the tree in a
/// database, each frame as a file that is never changed once it has a row. A change is on disk when its call
/// returns. Thread-safe. Failures throw CoException with what was attempted, on what, and the reason; a
/// failed call changes nothing.
class NodeStore {
  public:
    /// Opens the directory, making what is missing in it, the root node too. One process at a time uses it.
    explicit NodeStore(const std::string& directory);
    NodeStore(const NodeStore&) = delete;
    NodeStore& operator=(const NodeStore&) = delete;
    ~NodeStore();

    /// Identity of this storage, made with the directory and kept with it.
    std::string storageId();
    RemoteFiles& remoteFiles() { return remoteFiles_; }

    /// The observer of every change from now on; null for none. The one before is not called any more when
    /// this returns.
    void setObserver(NodeObserver* observer);

    // --- Tree ---

    struct Node {
        std::int64_t key = 0;
        std::int64_t parent = 0;
        std::string type;
        std::string displayName;
        std::int64_t numFrames = 0;
    };
    struct Child {
        std::string id;
        std::string displayName;
    };
    struct NewNode {
        std::string displayName;
        std::string type;
        std::string format;  ///< a clip's format, as text
        std::string stream;  ///< metadata stream that `metaData` goes to; empty for none
        std::string metaData;
    };

    std::string rootId();
    bool isEmpty();
    Node node(std::string_view id);
    /// Whether there was such a node, and is no more. CoException when there never was.
    bool isGone(std::string_view id);
    std::string parentId(std::string_view id);
    /// In order of creation.
    std::vector<Child> children(std::string_view id);

    /// Creates a child; returns its id. Refused when the parent's type does not accept it.
    std::string create(std::string_view parent, const NewNode& node);
    void rename(std::string_view id, const std::string& displayName);
    /// Copies `source` with all that is under it to a new child of `parent`; returns the copy's id.
    std::string duplicate(std::string_view parent, std::string_view source, const std::string& displayName);
    /// Removes the node and all that is under it.
    void destroy(std::string_view id);

    // --- Metadata and formats ---

    /// Empty when none was ever set.
    std::string metaData(std::string_view id, const std::string& stream);
    void setMetaData(std::string_view id, const std::string& stream, const std::string& data);
    std::string clipFormat(std::string_view id);

    // --- Frames ---

    std::int64_t numFrames(std::string_view clip);
    std::vector<std::string> frameIds(std::string_view clip);
    /// Makes `count` the clip's number of frames. Frames from there on are removed; new ones are unwritten.
    void setNumFrames(std::string_view clip, std::int64_t count);

    /// A path for each frame, empty for one that was never written.
    std::vector<std::string> framePaths(std::string_view clip);
    /// Makes the clip's frames links to files, which are opened when a frame is read.
    void setFramePaths(std::string_view clip, const std::vector<std::string>& paths);

    /// A frame's bytes; they stay as they are for as long as the file is open, whatever happens to the frame.
    ReadableFile openFrame(std::string_view frameId);

    /// Begins a new content for a frame. The earlier one stays until commitFrame; without it nothing changes.
    std::unique_ptr<NewFile> beginFrame(std::string_view frameId);
    void commitFrame(std::string_view frameId, NewFile& content);

  private:
    Vantrel::CoFd lockDirectory() const;
    void createSchema() CO_REQUIRES(mutex_);
    void requireNoFrames() const;
    void sweepUnusedFrames() CO_REQUIRES(mutex_);

    Node findNode(std::string_view id) CO_REQUIRES(mutex_);
    Node findClip(std::string_view id) CO_REQUIRES(mutex_);
    using Subtree = std::vector<std::pair<std::int64_t, std::int64_t>>;  // nodes with their parents
    Subtree subtreeToCopy(std::int64_t source) CO_REQUIRES(mutex_);
    std::int64_t copyNode(std::int64_t original, std::int64_t parent) CO_REQUIRES(mutex_);
    std::int64_t insertNode(std::int64_t parent, const NewNode& node, std::int64_t numFrames)
        CO_REQUIRES(mutex_);
    void storeMetaData(std::int64_t node, const std::string& stream, const std::string& data)
        CO_REQUIRES(mutex_);
    void requireAccepted(const Node& parent, const std::string& type, const std::string& displayName) const;
    std::vector<std::string> framesFilesFrom(std::int64_t clip, std::int64_t index) CO_REQUIRES(mutex_);
    void removeFramesFrom(std::int64_t clip, std::int64_t index) CO_REQUIRES(mutex_);
    void updateNumFrames(std::int64_t clip, std::int64_t count) CO_REQUIRES(mutex_);
    void commitAndRemove(SqliteTransaction& transaction, const std::vector<std::string>& files)
        CO_REQUIRES(mutex_);
    void notify(const NodeChange& change) const CO_REQUIRES(mutex_);
    std::vector<std::int64_t> observedSubtree(std::int64_t node) CO_REQUIRES(mutex_);
    std::string frameFilePath(const std::string& file) const { return framesDirectory_ + "/" + file; }

    const std::string directory_;
    const std::string framesDirectory_;
    const Vantrel::CoFd lock_;
    RemoteFiles remoteFiles_;

    Vantrel::CoMutex mutex_;
    SqliteDatabase database_ CO_GUARDED_BY(mutex_);
    NodeObserver* observer_ CO_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace vantreld
