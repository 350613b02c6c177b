// The frames of the clips in a NodeStore.

#include <unistd.h>

#include <cerrno>

#include "CoException.h"
#include "CoMsg.h"
#include "NodeIds.h"
#include "NodeStore.h"
#include "ServerLimits.h"
#include "VantrelNodeTypes.h"

namespace vantreld {

using Vantrel::coErrorText;
using Vantrel::CoException;
using Vantrel::coFormat;
using Vantrel::CoLock;

namespace {

void checkFrameCount(std::int64_t count) {
    if (count >= 0 && count <= MAX_CLIP_FRAMES) return;
    throw CoException(coFormat("A clip cannot have %ld frames; it has from 0 to %ld.",
                               static_cast<long>(count), static_cast<long>(MAX_CLIP_FRAMES)));
}

}  // namespace

NodeStore::Node NodeStore::findClip(std::string_view id) {
    Node node = findNode(id);
    if (!vantrelIsClipNodeType(node.type))
        throw CoException(
            coFormat("Node '%s' is a %s, not a clip.", nodeIdText(node.key).c_str(), node.type.c_str()));
    return node;
}

std::string NodeStore::clipFormat(std::string_view id) {
    const CoLock lock(mutex_);
    const Node clip = findClip(id);
    SqliteQuery query(database_, "SELECT format FROM nodes WHERE id = ?");
    return query.number(clip.key).step() ? query.bytesAt(0) : std::string();
}

std::int64_t NodeStore::numFrames(std::string_view id) {
    const CoLock lock(mutex_);
    return findClip(id).numFrames;
}

std::vector<std::string> NodeStore::frameIds(std::string_view id) {
    Node clip;
    {
        const CoLock lock(mutex_);
        clip = findClip(id);
    }
    std::vector<std::string> ids;
    ids.reserve(static_cast<std::size_t>(clip.numFrames));
    for (std::int64_t index = 0; index < clip.numFrames; ++index) ids.push_back(frameIdText(clip.key, index));
    return ids;
}

std::vector<std::string> NodeStore::framesFilesFrom(std::int64_t clip, std::int64_t index) {
    SqliteQuery query(database_,
                      "SELECT DISTINCT file FROM frames WHERE clip = ? AND idx >= ? AND file <> ''");
    query.number(clip).number(index);
    std::vector<std::string> files;
    while (query.step()) files.push_back(query.bytesAt(0));
    return files;
}

void NodeStore::removeFramesFrom(std::int64_t clip, std::int64_t index) {
    SqliteQuery(database_, "DELETE FROM frames WHERE clip = ? AND idx >= ?").number(clip).number(index).run();
}

void NodeStore::updateNumFrames(std::int64_t clip, std::int64_t count) {
    SqliteQuery(database_, "UPDATE nodes SET numFrames = ? WHERE id = ?").number(count).number(clip).run();
}

void NodeStore::commitAndRemove(SqliteTransaction& transaction, const std::vector<std::string>& files) {
    std::vector<std::string> unused;
    for (const std::string& file : files) {
        SqliteQuery query(database_, "SELECT 1 FROM frames WHERE file = ? LIMIT 1");
        if (!query.text(file).step()) unused.push_back(file);
    }
    transaction.commit();
    for (const std::string& file : unused) {
        // One that stays behind costs disk space until the next start, no more.
        if (::unlink(frameFilePath(file).c_str()) != 0)
            CO_MSG_WARNING("Cannot remove '%s': %s", frameFilePath(file).c_str(), coErrorText(errno).c_str());
    }
}

void NodeStore::setNumFrames(std::string_view id, std::int64_t count) {
    checkFrameCount(count);
    const CoLock lock(mutex_);
    const Node clip = findClip(id);
    if (clip.numFrames == count) return;
    const std::vector<std::string> files = framesFilesFrom(clip.key, count);
    SqliteTransaction transaction(database_);
    removeFramesFrom(clip.key, count);
    updateNumFrames(clip.key, count);
    commitAndRemove(transaction, files);
    notify(NodeChange::framesReplaced(clip.key, count));
    notify(NodeChange::changed(clip.key, count));
}

std::vector<std::string> NodeStore::framePaths(std::string_view id) {
    const CoLock lock(mutex_);
    const Node clip = findClip(id);
    std::vector<std::string> paths(static_cast<std::size_t>(clip.numFrames));
    SqliteQuery query(database_, "SELECT idx, file, link FROM frames WHERE clip = ? AND idx < ?");
    query.number(clip.key).number(clip.numFrames);
    while (query.step()) {
        const std::string link = query.bytesAt(2);
        paths[static_cast<std::size_t>(query.numberAt(0))] =
            link.empty() ? frameFilePath(query.bytesAt(1)) : link;
    }
    return paths;
}

void NodeStore::setFramePaths(std::string_view id, const std::vector<std::string>& paths) {
    const std::int64_t count = static_cast<std::int64_t>(paths.size());
    checkFrameCount(count);
    const CoLock lock(mutex_);
    const Node clip = findClip(id);
    const std::vector<std::string> files = framesFilesFrom(clip.key, 0);
    SqliteTransaction transaction(database_);
    removeFramesFrom(clip.key, 0);
    for (std::int64_t index = 0; index < count; ++index) {
        const std::string& path = paths[static_cast<std::size_t>(index)];
        if (path.empty()) continue;
        SqliteQuery(database_, "INSERT INTO frames(clip, idx, file, link) VALUES(?, ?, '', ?)")
            .number(clip.key)
            .number(index)
            .bytes(path)
            .run();
    }
    updateNumFrames(clip.key, count);
    commitAndRemove(transaction, files);
    notify(NodeChange::framesReplaced(clip.key, count));
    if (count != clip.numFrames) notify(NodeChange::changed(clip.key, count));
}

ReadableFile NodeStore::openFrame(std::string_view frameId) {
    const FrameKey key = parseFrameId(frameId);
    const CoLock lock(mutex_);
    SqliteQuery clip(database_, "SELECT numFrames FROM nodes WHERE id = ?");
    if (!clip.number(key.clip).step() || key.index >= clip.numberAt(0)) failNoSuchFrame(frameId);
    SqliteQuery frame(database_, "SELECT file, link FROM frames WHERE clip = ? AND idx = ?");
    if (!frame.number(key.clip).number(key.index).step())
        throw CoException(coFormat("Frame '%s' has not been written.", std::string(frameId).c_str()));
    const std::string link = frame.bytesAt(1);
    return link.empty() ? openForReading(frameFilePath(frame.bytesAt(0))) : remoteFiles_.openLinked(link);
}

std::unique_ptr<NewFile> NodeStore::beginFrame(std::string_view frameId) {
    const FrameKey key = parseFrameId(frameId);
    {
        const CoLock lock(mutex_);
        SqliteQuery clip(database_, "SELECT numFrames FROM nodes WHERE id = ?");
        if (!clip.number(key.clip).step() || key.index >= clip.numberAt(0)) failNoSuchFrame(frameId);
    }
    return std::make_unique<NewFile>(framesDirectory_);
}

void NodeStore::commitFrame(std::string_view frameId, NewFile& content) {
    const FrameKey key = parseFrameId(frameId);
    // The slow part, outside the lock: uploads on several connections wait for the disk side by side.
    content.sync();
    syncDirectory(framesDirectory_);

    const CoLock lock(mutex_);
    SqliteTransaction transaction(database_);
    {
        SqliteQuery clip(database_, "SELECT numFrames FROM nodes WHERE id = ?");
        if (!clip.number(key.clip).step() || key.index >= clip.numberAt(0)) failNoSuchFrame(frameId);
    }
    std::vector<std::string> earlier;
    {
        SqliteQuery frame(database_, "SELECT file FROM frames WHERE clip = ? AND idx = ? AND file <> ''");
        if (frame.number(key.clip).number(key.index).step()) earlier.push_back(frame.bytesAt(0));
    }
    SqliteQuery(database_, "INSERT OR REPLACE INTO frames(clip, idx, file, link) VALUES(?, ?, ?, x'')")
        .number(key.clip)
        .number(key.index)
        .text(content.name())
        .run();
    // Kept before the commit: whether a failed commit reached the disk is unknown, and a row without its file
    // would lose a frame, while a file without a row is swept at the next start.
    content.keep();
    try {
        commitAndRemove(transaction, earlier);
    } catch (const CoException&) {
        // With a full disk that is known, and the space is needed.
        if (database_.couldNotWrite()) content.discard();
        throw;
    }
    notify(NodeChange::frameWritten(key.clip, key.index));
}

}  // namespace vantreld
