#pragma once

#include <vantrel/VantrelErrorCode.h>
#include <vantrel/VantrelServerInfo.h>
#include <vantrel/VantrelTypes.h>

class VantrelNodeHandle;
class VantrelServerImp;

/// An application's object for one server. Building one contacts nobody: the first call that needs the server
/// connects. Handles to the same server share its metadata connection; frames travel on a connection of the
/// handle's own.
///
/// Every call that returns `bool` returns true on success; on failure it returns false and `lastError` says
/// why. Every call fails with "API not initialized" before VantrelClientInit, with the system's time-out text
/// when the server does not answer in time (VANTREL_DEFAULT_CALL_TIMEOUT_MS, default 60000 ms), with the
/// transport's text when the connection breaks, and with the server's own text when it refuses. A lost
/// connection is re-established by the next call. Outputs are assigned on success only.
///
/// How long a call waits at most, once those before it on the same connection have returned:
/// - for its answer, VANTREL_DEFAULT_CALL_TIMEOUT_MS, also when the connection breaks and it is sent again;
/// - before that, where it has to connect, for each address of the server VANTREL_CONNECTION_TIMEOUT_MS
///   (default 5000 ms, cut to whole seconds), as much again for the login, and
///   VANTREL_GET_DAEMON_INFO_CALL_TIMEOUT_MS (5000 ms) for what the server says of itself; 2 s more where
///   discovery is asked. All that ends after the time-out of the call; what failed earlier is tried again
///   with pauses of VANTREL_CONNECTION_RETRY_TIMEOUT_MS (1000 ms) in all. A connection that breaks is made
///   again twice at most;
/// - frame and file transfers, as long as bytes move: VANTREL_FRAME_STALL_TIMEOUT_MS (60000 ms) without one.
/// A call that sends several commands, such as a display path's, waits for each. `getId`, `isConnected` and
/// `stop` never wait; `lastError`, `lastErrorCode` and `mayHaveExecuted` wait for a call of the handle that
/// another thread is in.
///
/// Thread safety: any thread may call; calls on one handle wait for each other, except `isConnected` and
/// `stop`, which never wait, and `disconnect`, which ends the others. The handle must outlive the node
/// handles that refer to it.
class VANTREL_API VantrelServerHandle {
  public:
    // Entries of the server's path translation tables (VantrelTranslations.h).
    class TranslationGroup;
    class HostTranslation;
    class OsTypeTranslation;

    explicit VantrelServerHandle(const VantrelServerId& id);
    /// A new, independent handle to the same server. Asks the source for its id, which may connect the
    /// source.
    VantrelServerHandle(const VantrelServerHandle& other);
    /// Leaves `other` empty: every later call on it logs an assertion and fails.
    VantrelServerHandle(VantrelServerHandle&& other) noexcept;
    /// Become what the constructors make of `other`; what the handle was goes as with its destruction. Node
    /// handles that refer to it refer to the other server from then on, forget what the first one said, and
    /// are to be pointed at nodes of the other: so it is with the elements of a std::vector that move up when
    /// one before them is erased. Node handles of a handle that is gone dangle and must be pointed at another
    /// before they are used: those of all elements when a vector allocates its storage again, and those of
    /// the last one after an erase.
    VantrelServerHandle& operator=(const VantrelServerHandle& other);
    VantrelServerHandle& operator=(VantrelServerHandle&& other) noexcept;
    /// Removes its event handlers and waits for one that runs on another thread. A connected server is told
    /// first, for a second at most, longer only where another thread is in a call on the same connection.
    virtual ~VantrelServerHandle();

    /// Why the last failing call failed; never null, empty at first. The text is the calling thread's own
    /// copy; it is valid until the library has handed that thread 16 further texts.
    const char* lastError() const;
    /// The same for programs: VANTREL_ERROR_NONE at first.
    VantrelErrorCode lastErrorCode() const;
    /// Whether the server may have done what the last failing call asked: its command went out, and no answer
    /// said that it was refused. False where nothing was sent, or the server refused.
    bool mayHaveExecuted() const;

    // --- Connection ---

    /// Whether a connection exists now. Does not connect.
    bool isConnected() const;
    /// Closes the handle's connections, the shared metadata connection included. Ends the calls in progress
    /// on them as `stop` does, with the system's text for an interrupted call; so it does not wait for the
    /// server.
    void disconnect() const;
    /// Ends the calls of other threads that are in progress, whether they run or wait for their turn: they
    /// fail with `reason` (null: the system's text for an interrupted call). A frame transfer ends too, with
    /// "Operation aborted.". Calls through other handles to the server, which share the connection, end as
    /// well. Without a call in progress it has no effect.
    void stop(const char* reason) const;

    /// How long calls through this handle may take, in milliseconds, in place of the environment's settings:
    /// for the server's answer (VANTREL_DEFAULT_CALL_TIMEOUT_MS), for an attempt to connect
    /// (VANTREL_CONNECTION_TIMEOUT_MS) and for trying again to connect (VANTREL_CONNECTION_RETRY_TIMEOUT_MS).
    /// From the next call on; a copy of the handle has the environment's. Frame transfers and the
    /// registration of event handlers keep to the environment's.
    void setCallTimeout(unsigned int milliseconds) const;
    void setConnectTimeout(unsigned int milliseconds) const;
    void setConnectRetryTimeout(unsigned int milliseconds) const;

    /// Whether the server answers. `retryTimeoutMs`: how long to keep trying to connect, in milliseconds, in
    /// place of VANTREL_CONNECTION_RETRY_TIMEOUT_MS; the attempts themselves come on top.
    bool ping(unsigned int retryTimeoutMs) const;

    // --- Identity ---

    /// The id that the handle was built from; its text form. Valid as long as the handle.
    const VantrelServerId& getId() const;
    const char* getIdStr() const;

    /// The server's host UUID and host name; null on failure. Valid as long as the text of lastError.
    const char* getHostUUID() const;
    const char* getHostName() const;
    bool getStorageId(VantrelStr& storageId) const;
    bool getDisplayName(VantrelStr& displayName) const;
    /// Everything that the server says of itself.
    bool getInfo(VantrelServerInfo& info) const;
    /// True when the server's database has this name, byte for byte.
    bool isDatabase(const char* name) const;

    /// Vendor, product and version of the software behind the server's node tree.
    bool getVendor(VantrelStr& vendor) const;
    bool getProduct(VantrelStr& product) const;
    bool getVersion(int& major, int& minor) const;

    /// First two numbers of the protocol version.
    bool getProtocolVersion(int& major, int& minor) const;
    /// Sets `atLeast` to whether the protocol version is a.b.c.d or later.
    bool compareVersion(bool& atLeast, int a, int b, int c, int d) const;
    /// The same for the version of the product.
    bool compareProductVersion(bool& atLeast, int major, int minor, int maintenance, int build) const;

    // --- Nodes ---

    /// The root of the server's tree. `node` then refers to this handle.
    bool getRootNode(VantrelNodeHandle& node) const;

    // --- Frames ---

    /// Reads the first `size` bytes of a frame into `buffer`. `readAheadId1` and `readAheadId2`, where not
    /// null, name frames that the server may prepare, or for which it may name another server: they are then
    /// read from that one, as long as it can be connected. The bytes are those that were written; their
    /// layout is given by the clip format (VantrelFormats.h). On failure the content of `buffer` is
    /// undefined. A read of nothing (a null or empty `frameId`, a null `buffer` or a `size` of 0) names the
    /// frames ahead alone. It returns true when they were announced to the server, and also when there are
    /// none: no frame is asked for then, but a server that was not reached yet is connected to first, and the
    /// call fails when that does.
    bool readFrame(const char* frameId, void* buffer, unsigned long size, const char* readAheadId1 = nullptr,
                   const char* readAheadId2 = nullptr) const;
    /// The same with `requestSize` bytes of parameters for the server.
    bool readFrame(const char* frameId, const void* request, unsigned long requestSize, void* buffer,
                   unsigned long size, const char* readAheadId1 = nullptr,
                   const char* readAheadId2 = nullptr) const;
    /// Replaces the content of a frame by `size` bytes. True: the server has stored them.
    bool writeFrame(const char* frameId, const void* data, unsigned long size) const;

    /// Reads elements of a stream, `elementSize` bytes each, from element `position` on. `count` holds the
    /// number of elements wanted and becomes the number read. Fails with "Buffer too small." when the answer
    /// exceeds `size` bytes (`count` is then the number available), and with the system's EACCES text on
    /// servers older than 2007.1.0.0.
    bool readStream(const char* streamId, void* buffer, unsigned long size, unsigned long position,
                    unsigned long elementSize, unsigned long& count) const;
    /// Sends a local file to the server, which must be a regular one, or fetches one. A fetched file takes
    /// the place of the earlier one when it is complete; a failed `pullStream` leaves that as it was. Where
    /// this is not possible, because the folder of an existing file cannot be written or `localPath` is a
    /// device or a FIFO, the bytes are written in place as they come, and a failed one leaves those that
    /// came. A FIFO that nobody reads is a failure, not waited for. Fail with the system's EACCES text on
    /// servers older than 2007.1.0.0.
    bool pushStream(const char* remoteName, const char* localPath) const;
    bool pullStream(const char* remoteName, const char* localPath) const;
    /// Makes the server forget frames that it has cached. True without traffic on servers older than
    /// 2012.0.0.5120.
    bool invalidateCache() const;

    // --- Events ---

    /// Calls `handler` for every event of a node from now on, until it is unregistered. Several handlers of a
    /// node are called in the order of their registration; one that is registered already keeps its place.
    /// `format` and `meta`, where not null, ask the server for the node's events in this format and with this
    /// metadata tag; those given last hold for all of its handlers. Where the connection to the
    /// server is lost it is tried again, after a second at first and every 30 s in the end, and once it is
    /// up events arrive as before, but for those of the time between. An event may come twice. Fails with
    /// "Invalid handler pointer" for a null handler, with "Vantrel client not correctly configured to receive
    /// events." when this process has no port to receive on (VantrelClientSetEventsPortRange), and with the
    /// server's own text when it refuses; the handler is then not registered. Blocks until the server has
    /// answered, at most VANTREL_EVENTS_CALL_TIMEOUT_MS (default 15000 ms), and before that for connecting
    /// where the connection is down.
    ///
    /// `handler` stays the caller's and must live until it is unregistered, this handle is destroyed or the
    /// library shut down, which removes all handlers: after a new start they are to be registered again. One
    /// thread calls all handlers of the process, one after the other: a handler that
    /// blocks holds up every event. It may call any function of the library.
    bool registerEventHandler(const VantrelNodeId& nodeId, VantrelNodeEvent::Handler* handler,
                              const char* format = nullptr, const char* meta = nullptr) const;
    /// Removes a handler of a node. When it returns, the handler is not running and will not run again for
    /// this node; a call in progress on another thread is waited for. So it must not be called under a lock
    /// that the handler wants. From within a handler it returns at once. False when the handler was not
    /// registered, or when the server could not be reached or refused: the handler is removed all the same.
    /// Blocks for that as `registerEventHandler` does, when it was the node's last handler.
    bool unregisterEventHandler(const VantrelNodeId& nodeId, VantrelNodeEvent::Handler* handler) const;

    // --- Path translation ---

    /// A path of the source host as the destination host would write it. Paths that the server has no
    /// translation for come back as they are. A null source host stands for the server's display name, a null
    /// destination host for the server's host name; with an OS type Unknown, the server takes what it knows
    /// of the host. Fails with "Invalid source host name given" or "Invalid destination host name given",
    /// before anything is sent, when a name is empty or holds control characters.
    bool translatePath(const char* path, VantrelStr& result, const char* srcHost = nullptr,
                       const char* dstHost = nullptr, VantrelOS::OsType srcType = VantrelOS::Unknown,
                       VantrelOS::OsType dstType = VantrelOS::Unknown) const;
    /// The same for many paths in one request: `result` holds one path for each, in the same order.
    bool translatePaths(const VantrelStrList& paths, VantrelStrList& result, const char* srcHost = nullptr,
                        const char* dstHost = nullptr, VantrelOS::OsType srcType = VantrelOS::Unknown,
                        VantrelOS::OsType dstType = VantrelOS::Unknown) const;

    /// Each getNum asks the server for a whole table and returns how many entries it has; the call below it
    /// gives one of them without asking again, except when the table was never asked for. An index outside 0
    /// to count - 1 fails with "Index %d is out of the bounds 0,%d." (index, count).
    bool getNumTranslationGroups(int& count) const;
    bool getTranslationGroup(int index, TranslationGroup& group) const;
    bool getNumHostTranslations(int& count) const;
    bool getHostTranslation(int index, HostTranslation& translation) const;
    bool getNumOsTypeTranslations(int& count) const;
    bool getOsTypeTranslation(int index, OsTypeTranslation& translation) const;

    /// For the library's own use: the implementation; null (and a logged assertion) when the handle was moved
    /// from.
    VantrelServerImp* imp() const;

  private:
    VantrelServerImp* imp_;
};
