#pragma once

/// The one header that an application includes. A program that lists a server's root:
///
///     VantrelClient client(false);
///     VantrelServerHandle server(VantrelServerId("render01:7549"));
///     VantrelNodeHandle root;
///     int count = 0;
///     if (!server.getRootNode(root) || !root.getNumChildren(count)) report(server.lastError());
///
/// The library is a guest in its process: it installs no signal handler, writes nothing but log messages,
/// never ends the process, and may be left without VantrelClientUninit at any moment.

#include <vantrel/VantrelCallbacks.h>
#include <vantrel/VantrelFormats.h>
#include <vantrel/VantrelNodeHandle.h>
#include <vantrel/VantrelServerHandle.h>
#include <vantrel/VantrelServerInfo.h>
#include <vantrel/VantrelServerList.h>
#include <vantrel/VantrelTranslations.h>
#include <vantrel/VantrelTypes.h>

/// Brings the library up. Counted: each call wants one VantrelClientUninit. False when the network layer
/// cannot be brought up; calls after a failed first one return true without trying again, until they and the
/// failed one were undone: the next call is then a first one. Adopts the log of a host program that exports
/// `CoMsg_getFilterLevel` and `CoMsg_getRouter`. The first call sets the log level to that of the host, and
/// to 0 without one: VantrelSetLogLevel comes after it. Callbacks that were registered before are kept and
/// used from then on. Thread-safe, but the first call and the last VantrelClientUninit must not race with
/// other calls.
VANTREL_API bool VantrelClientInit();
/// Undoes one VantrelClientInit; the last one ends every call and frame transfer in progress, closes every
/// connection and joins every thread of the library.
VANTREL_API void VantrelClientUninit();
/// Whether VantrelClientInit was called more often than VantrelClientUninit. Thread-safe.
VANTREL_API bool VantrelClientIsInitialized();

/// Version of the library.
VANTREL_API void VantrelClientGetVersion(int& major, int& minor, int& patch);

/// Which log messages are emitted; 0 to 4, any other value changes nothing. The environment variable
/// QD_MSG_LEVEL, when set, wins. Valid at any time, but the first VantrelClientInit sets the level again. The
/// registrations below are valid at any time and last until they are replaced; all three are thread-safe. A
/// callback that was replaced may still be running on another thread.
VANTREL_API void VantrelSetLogLevel(VantrelLogLevel level);
/// Sends log messages to `callBack`, replacing any earlier one; null restores standard error.
VANTREL_API void VantrelRegisterLogCallBack(VantrelLogCallBack callBack);
/// Calls `callBack` for every lost connection (see VantrelDisconnectCallBack), replacing any earlier one;
/// null for none.
VANTREL_API void VantrelRegisterDisconnectCallBack(VantrelDisconnectCallBack callBack);

/// Closes connections that no handle uses; with `all`, every connection leaves the cache, and handles that
/// still hold one go on working with it. Without effect while the library is not initialised. Thread-safe.
VANTREL_API void VantrelClientReleaseUnusedConnections(bool all);

/// The ports, `first` to `last`, of which this process takes one to receive events on; the first that is
/// free. -1 and -1, as at first, let the system choose. Takes effect when the first event handler is
/// registered, or the first after the library was shut down; also where none of the ports was free, a new
/// range counts only after a shut-down. Valid at any time. Thread-safe.
VANTREL_API void VantrelClientSetEventsPortRange(int first, int last);

/// Creates this workstation's network configuration file, /opt/Quorvane/cfg/network.cfg or what
/// QD_NETWORK_CFG_FILE names, with a new UUID. True also when it is there already; one without a UUID is
/// given one. False with the reason in `error` (may be null) when it cannot. Needs no VantrelClientInit.
VANTREL_API bool VantrelCreateNetworkConfig(VantrelStr* error);

/// Writes the commented template of that file, without a UUID, to `path`. False, with the reason in the log,
/// when it cannot.
VANTREL_API bool VantrelWriteNetworkConfigTemplate(const char* path);
/// The same under the name of the form above. A template, so that a literal null means that form.
template <typename Character>
inline bool VantrelCreateNetworkConfig(const Character* path) {
    return VantrelWriteNetworkConfigTemplate(path);
}

/// Finds the first child of `parent` with this display name, compared byte for byte. False when there is none
/// (or the name is null), without a new error text: `child` then refers to the last child. False with the
/// server handle's last error when the children could not be asked for. `child` may be `parent`. Costs one
/// request to the server. Thread safety: as a call on each of the two handles.
VANTREL_API bool VantrelFindChild(const VantrelNodeHandle& parent, const char* displayName,
                                  VantrelNodeHandle& child);

/// Finds a node by the display names on the way to it from the root, separated by "/". Null, "" and "/" give
/// the root; repeated separators and "." count for nothing, and ".." takes the name before it back. On
/// failure the reason is the server's last error, empty (and VANTREL_ERROR_NOT_FOUND) when a name was not
/// found, and `node` is undefined. Costs one request to the server per level, and one for the root. `server`
/// must outlive `node`. Thread safety: as a call on `node`.
VANTREL_API bool VantrelResolveDisplayPath(const VantrelServerHandle& server, const char* path,
                                           VantrelNodeHandle& node);
bool VantrelResolveDisplayPath(const VantrelServerHandle&& server, const char* path,
                               VantrelNodeHandle& node) = delete;

/// VantrelClientInit and VantrelClientUninit for the life of an object. Thread safety: as those functions.
class VANTREL_API VantrelClient {
  public:
    /// Initialises the library at once, or with `defer` when `init` is called.
    explicit VantrelClient(bool defer = false);
    VantrelClient(const VantrelClient&) = delete;
    VantrelClient& operator=(const VantrelClient&) = delete;
    virtual ~VantrelClient();

    /// True when this object has initialised the library, now or earlier.
    bool init();

  private:
    bool initialized_;
};
