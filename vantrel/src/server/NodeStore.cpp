#include "NodeStore.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <cstdlib>
#include <random>
#include <unordered_map>

#include "CoException.h"
#include "CoMsg.h"
#include "NodeIds.h"
#include "ServerLimits.h"
#include "VantrelNodeTypes.h"

namespace vantreld {

using Vantrel::CoException;
using Vantrel::CoFd;
using Vantrel::coFormat;
using Vantrel::CoLock;

namespace {

constexpr int SCHEMA_VERSION = 1;
constexpr const char* ROOT_TYPE = "HOST";

// AUTOINCREMENT keeps the number of a destroyed node from coming back under a client that still holds it.
constexpr const char* SCHEMA = R"(
    CREATE TABLE nodes (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        parent INTEGER NOT NULL,
        type TEXT NOT NULL,
        name BLOB NOT NULL,
        format BLOB NOT NULL,
        numFrames INTEGER NOT NULL);
    CREATE INDEX nodesByParent ON nodes(parent);
    CREATE TABLE metadata (
        node INTEGER NOT NULL,
        stream TEXT NOT NULL,
        data BLOB NOT NULL,
        UNIQUE(node, stream));
    CREATE TABLE frames (
        clip INTEGER NOT NULL,
        idx INTEGER NOT NULL,
        file TEXT NOT NULL,
        link BLOB NOT NULL,
        PRIMARY KEY(clip, idx)) WITHOUT ROWID;
    CREATE INDEX framesByFile ON frames(file);
    CREATE TABLE identity (storageId TEXT NOT NULL);
)";

/// The node and all that is under it. A parent's number is always below its children's.
#define SUBTREE                                          \
    "WITH RECURSIVE subtree(id) AS (SELECT ? UNION ALL " \
    "SELECT nodes.id FROM nodes JOIN subtree ON nodes.parent = subtree.id) "

std::string canonicalDirectory(const std::string& directory) {
    if (directory.empty()) throw CoException("No root directory given.");
    makeDirectories(directory);
    const std::unique_ptr<char, void (*)(void*)> path(::realpath(directory.c_str(), nullptr), std::free);
    if (!path) failWithErrno("resolve", directory);
    return path.get();
}

void checkDisplayName(const std::string& name) {
    if (name.empty()) throw CoException("The display name is empty.");
    if (name.find('\0') != std::string::npos) throw CoException("The display name holds a NUL byte.");
    if (name.size() > MAX_DISPLAY_NAME_BYTES)
        throw CoException(coFormat("The display name has %zu bytes; at most %zu are kept.", name.size(),
                                   MAX_DISPLAY_NAME_BYTES));
}

}  // namespace

NodeStore::NodeStore(const std::string& directory)
    : directory_(canonicalDirectory(directory)),
      framesDirectory_(directory_ + "/frames"),
      lock_(lockDirectory()),
      remoteFiles_(directory_ + "/files", directory_ + "/uploads"),
      database_(directory_ + "/vantreld.db") {
    makeDirectories(framesDirectory_);
    createSchema();
    sweepUnusedFrames();
}

NodeStore::~NodeStore() = default;

CoFd NodeStore::lockDirectory() const {
    const std::string path = directory_ + "/lock";
    CoFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!fd.isOpen()) failWithErrno("create", path);
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) == 0) return fd;
    if (errno != EWOULDBLOCK) failWithErrno("lock", path);
    throw CoException(coFormat("Root '%s' is in use by another server.", directory_.c_str()));
}

void NodeStore::createSchema() {
    std::int64_t version = 0;
    {
        SqliteQuery query(database_, "PRAGMA user_version");
        if (query.step()) version = query.numberAt(0);
    }
    if (version == SCHEMA_VERSION) return;
    if (version != 0)
        throw CoException(
            coFormat("Root '%s' was made by another version of the server (layout %ld, not %d).",
                     directory_.c_str(), static_cast<long>(version), SCHEMA_VERSION));
    requireNoFrames();
    SqliteTransaction transaction(database_);
    database_.execute(SCHEMA);
    NewNode root;
    root.displayName = root.type = ROOT_TYPE;
    insertNode(0, root, 0);
    std::random_device device;
    const std::string storageId = coFormat("vantreld-%08x%08x", device(), device());
    SqliteQuery(database_, "INSERT INTO identity(storageId) VALUES(?)").text(storageId).run();
    database_.execute(coFormat("PRAGMA user_version=%d", SCHEMA_VERSION).c_str());
    transaction.commit();
}

void NodeStore::requireNoFrames() const {
    // Without the rows that know them, the sweep would take them for unused.
    bool found = false;
    sweepDirectory(framesDirectory_, [&found](const std::string& file) {
        found = found || NewFile::isName(file);
        return false;
    });
    if (!found) return;
    throw CoException(
        coFormat("Root '%s' has frames, but its database 'vantreld.db' is missing or empty. "
                 "Put it back, or remove what is in 'frames'.",
                 directory_.c_str()));
}

void NodeStore::sweepUnusedFrames() {
    // An upload that a crash cut off left a file that no row knows.
    sweepDirectory(framesDirectory_, [this](const std::string& file) CO_REQUIRES(mutex_) {
        if (!NewFile::isName(file)) return false;
        SqliteQuery query(database_, "SELECT 1 FROM frames WHERE file = ? LIMIT 1");
        return !query.text(file).step();
    });
}

std::string NodeStore::storageId() {
    const CoLock lock(mutex_);
    SqliteQuery query(database_, "SELECT storageId FROM identity");
    return query.step() ? query.bytesAt(0) : std::string();
}

void NodeStore::setObserver(NodeObserver* observer) {
    const CoLock lock(mutex_);
    observer_ = observer;
}

// Under the lock, so that changes of several threads are notified in their order.
void NodeStore::notify(const NodeChange& change) const {
    if (observer_ != nullptr) observer_->nodeChanged(change);
}

std::string NodeStore::rootId() {
    const CoLock lock(mutex_);
    SqliteQuery query(database_, "SELECT id FROM nodes WHERE parent = 0");
    if (!query.step()) throw CoException(coFormat("Root '%s' has no root node.", directory_.c_str()));
    return nodeIdText(query.numberAt(0));
}

bool NodeStore::isEmpty() {
    return children(rootId()).empty();
}

NodeStore::Node NodeStore::findNode(std::string_view id) {
    SqliteQuery query(database_, "SELECT parent, type, name, numFrames FROM nodes WHERE id = ?");
    Node node;
    node.key = parseNodeId(id);
    if (!query.number(node.key).step()) failNoSuchNode(id);
    node.parent = query.numberAt(0);
    node.type = query.bytesAt(1);
    node.displayName = query.bytesAt(2);
    node.numFrames = query.numberAt(3);
    return node;
}

NodeStore::Node NodeStore::node(std::string_view id) {
    const CoLock lock(mutex_);
    return findNode(id);
}

bool NodeStore::isGone(std::string_view id) {
    const std::int64_t key = parseNodeId(id);
    const CoLock lock(mutex_);
    if (SqliteQuery(database_, "SELECT 1 FROM nodes WHERE id = ?").number(key).step()) return false;
    // Numbers are given out in order.
    SqliteQuery given(database_, "SELECT 1 FROM sqlite_sequence WHERE name = 'nodes' AND seq >= ?");
    if (key == 0 || !given.number(key).step()) failNoSuchNode(id);
    return true;
}

std::string NodeStore::parentId(std::string_view id) {
    const Node child = node(id);
    if (child.parent == 0) throw CoException("The root node has no parent.");
    return nodeIdText(child.parent);
}

std::vector<NodeStore::Child> NodeStore::children(std::string_view id) {
    const CoLock lock(mutex_);
    const Node parent = findNode(id);
    SqliteQuery query(database_, "SELECT id, name FROM nodes WHERE parent = ? ORDER BY id");
    query.number(parent.key);
    std::vector<Child> children;
    while (query.step()) children.push_back({nodeIdText(query.numberAt(0)), query.bytesAt(1)});
    return children;
}

void NodeStore::requireAccepted(const Node& parent, const std::string& type,
                                const std::string& displayName) const {
    if (vantrelNodeTypeAccepts(parent.type, type)) return;
    throw CoException(coFormat("Cannot create '%.128s' under node '%s': a %s accepts no %s.",
                               displayName.c_str(), nodeIdText(parent.key).c_str(), parent.type.c_str(),
                               type.c_str()));
}

std::int64_t NodeStore::insertNode(std::int64_t parent, const NewNode& node, std::int64_t numFrames) {
    SqliteQuery(database_, "INSERT INTO nodes(parent, type, name, format, numFrames) VALUES(?, ?, ?, ?, ?)")
        .number(parent)
        .text(node.type)
        .bytes(node.displayName)
        .bytes(node.format)
        .number(numFrames)
        .run();
    return database_.lastInsertId();
}

std::string NodeStore::create(std::string_view parentId, const NewNode& node) {
    checkDisplayName(node.displayName);
    const CoLock lock(mutex_);
    const Node parent = findNode(parentId);
    requireAccepted(parent, node.type, node.displayName);
    SqliteTransaction transaction(database_);
    const std::int64_t key = insertNode(parent.key, node, 0);
    if (!node.stream.empty()) storeMetaData(key, node.stream, node.metaData);
    transaction.commit();
    notify(NodeChange::created(parent.key, key, node.displayName));
    return nodeIdText(key);
}

void NodeStore::rename(std::string_view id, const std::string& displayName) {
    checkDisplayName(displayName);
    const CoLock lock(mutex_);
    const Node node = findNode(id);
    if (node.parent == 0) throw CoException("The root node cannot be renamed.");
    SqliteQuery(database_, "UPDATE nodes SET name = ? WHERE id = ?")
        .bytes(displayName)
        .number(node.key)
        .run();
    notify(NodeChange::renamed(node.key, displayName));
    notify(NodeChange::childRenamed(node.parent, node.key, displayName));
}

std::string NodeStore::duplicate(std::string_view parentId, std::string_view sourceId,
                                 const std::string& displayName) {
    const CoLock lock(mutex_);
    const Node parent = findNode(parentId);
    const Node source = findNode(sourceId);
    const std::string& name = displayName.empty() ? source.displayName : displayName;
    checkDisplayName(name);
    requireAccepted(parent, source.type, name);

    // Listed before anything is inserted: the copy may go below its own source.
    const Subtree subtree = subtreeToCopy(source.key);
    SqliteTransaction transaction(database_);
    std::unordered_map<std::int64_t, std::int64_t> copies{{source.parent, parent.key}};
    for (const auto& [original, originalParent] : subtree)
        copies[original] = copyNode(original, copies.at(originalParent));
    const std::int64_t copy = copies.at(source.key);
    SqliteQuery(database_, "UPDATE nodes SET name = ? WHERE id = ?").bytes(name).number(copy).run();
    transaction.commit();
    notify(NodeChange::created(parent.key, copy, name));
    return nodeIdText(copy);
}

/// Parents before their children.
NodeStore::Subtree NodeStore::subtreeToCopy(std::int64_t source) {
    Subtree subtree;
    SqliteQuery query(database_, SUBTREE "SELECT id, parent FROM nodes WHERE id IN subtree ORDER BY id");
    query.number(source);
    while (query.step()) subtree.emplace_back(query.numberAt(0), query.numberAt(1));
    if (subtree.size() <= MAX_DUPLICATED_NODES) return subtree;
    throw CoException(
        coFormat("Cannot duplicate node '%s': it has %zu nodes with those under it, at most "
                 "%zu are copied.",
                 nodeIdText(source).c_str(), subtree.size(), MAX_DUPLICATED_NODES));
}

/// Copies one node with its metadata and frames, without those under it.
std::int64_t NodeStore::copyNode(std::int64_t original, std::int64_t parent) {
    SqliteQuery(database_,
                "INSERT INTO nodes(parent, type, name, format, numFrames) "
                "SELECT ?, type, name, format, numFrames FROM nodes WHERE id = ?")
        .number(parent)
        .number(original)
        .run();
    const std::int64_t copy = database_.lastInsertId();
    for (const char* parts :
         {"INSERT INTO metadata(node, stream, data) SELECT ?, stream, data FROM metadata WHERE node = ?",
          // Frame files never change, so the copy's frames share them.
          "INSERT INTO frames(clip, idx, file, link) SELECT ?, idx, file, link FROM frames WHERE clip = ?"})
        SqliteQuery(database_, parts).number(copy).number(original).run();
    return copy;
}

void NodeStore::destroy(std::string_view id) {
    const CoLock lock(mutex_);
    const Node node = findNode(id);
    if (node.parent == 0) throw CoException("The root node cannot be destroyed.");
    const std::vector<std::int64_t> subtree = observedSubtree(node.key);
    std::vector<std::string> files;
    {
        SqliteQuery query(database_,
                          SUBTREE "SELECT DISTINCT file FROM frames WHERE clip IN subtree AND file <> ''");
        query.number(node.key);
        while (query.step()) files.push_back(query.bytesAt(0));
    }
    SqliteTransaction transaction(database_);
    for (const char* removal : {SUBTREE "DELETE FROM frames WHERE clip IN subtree",
                                SUBTREE "DELETE FROM metadata WHERE node IN subtree",
                                SUBTREE "DELETE FROM nodes WHERE id IN subtree"}) {
        SqliteQuery(database_, removal).number(node.key).run();
    }
    commitAndRemove(transaction, files);
    notify(NodeChange::destroyed(node.parent, node.key, node.displayName));
    if (observer_ != nullptr) observer_->nodesDestroyed(subtree);
}

// The nodes whose end the observer is notified of.
std::vector<std::int64_t> NodeStore::observedSubtree(std::int64_t node) {
    std::vector<std::int64_t> nodes;
    if (observer_ == nullptr) return nodes;
    SqliteQuery query(database_, SUBTREE "SELECT id FROM subtree");
    query.number(node);
    while (query.step()) nodes.push_back(query.numberAt(0));
    return nodes;
}

std::string NodeStore::metaData(std::string_view id, const std::string& stream) {
    const CoLock lock(mutex_);
    const Node node = findNode(id);
    SqliteQuery query(database_, "SELECT data FROM metadata WHERE node = ? AND stream = ?");
    return query.number(node.key).text(stream).step() ? query.bytesAt(0) : std::string();
}

void NodeStore::setMetaData(std::string_view id, const std::string& stream, const std::string& data) {
    const CoLock lock(mutex_);
    const std::int64_t node = findNode(id).key;
    storeMetaData(node, stream, data);
    notify(NodeChange::metaDataSet(node, stream));
}

void NodeStore::storeMetaData(std::int64_t node, const std::string& stream, const std::string& data) {
    SqliteQuery(database_, "INSERT OR REPLACE INTO metadata(node, stream, data) VALUES(?, ?, ?)")
        .number(node)
        .text(stream)
        .bytes(data)
        .run();
}

}  // namespace vantreld
