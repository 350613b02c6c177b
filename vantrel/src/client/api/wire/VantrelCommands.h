#pragma once

#include "VantrelVersion.h"

/// A command of the node port.
struct VantrelCommand {
    const char* name;
    /// The protocol version from which on servers have it.
    VantrelVersion since = {0, 0, 0, 0};
    /// The command that does the same with a richer argument or reply, where there is one. Servers that have
    /// both are asked by the extended form.
    const VantrelCommand* extended = nullptr;
};

/// The commands of the node port. What a client sends and what a server answers to is read from here; the
/// methods of the frame port stand in VantrelFrameInterface.
namespace VantrelCommands {

// clang-format off

// --- The server ---

inline constexpr VantrelCommand PING{"Ping"};
inline constexpr VantrelCommand QUERY_VERSION{"QueryVersion"};
inline constexpr VantrelCommand SHUTDOWN{"Shutdown"};
inline constexpr VantrelCommand GET_DAEMON_INFO{"GetDaemonInfo"};
inline constexpr VantrelCommand GET_DAEMON_LIST{"GetDaemonList"};
inline constexpr VantrelCommand GET_STORAGE_ID{"GetStorageId"};
inline constexpr VantrelCommand QUERY_NODE_PLUG_IN_VENDOR{"QueryNodePlugInVendor"};
inline constexpr VantrelCommand QUERY_NODE_PLUG_IN_PRODUCT{"QueryNodePlugInProduct"};
inline constexpr VantrelCommand QUERY_NODE_PLUG_IN_VERSION{"QueryNodePlugInVersion"};

// --- The tree ---

inline constexpr VantrelCommand GET_ROOT_NODE{"GetRootNode"};
inline constexpr VantrelCommand GET_PARENT_NODE{"GetParentNode"};
inline constexpr VantrelCommand GET_CHILDREN_EX{"GetChildrenEx", {2012, 0, 0, 5134}};
inline constexpr VantrelCommand GET_CHILDREN{"GetChildren", {}, &GET_CHILDREN_EX};
inline constexpr VantrelCommand GET_DISPLAY_NAME_EX{"GetDisplayNameEx", {2012, 0, 0, 5134}};
inline constexpr VantrelCommand GET_DISPLAY_NAME{"GetDisplayName", {}, &GET_DISPLAY_NAME_EX};
inline constexpr VantrelCommand GET_NODE_TYPE{"GetNodeType"};
inline constexpr VantrelCommand GET_NODE_TYPE_STR{"GetNodeTypeStr"};
inline constexpr VantrelCommand CAN_CREATE_NODE{"CanCreateNode", {2015, 0, 0, 0}};
inline constexpr VantrelCommand CREATE_NODE_EX{"CreateNodeEx", {2012, 0, 0, 5134}};
inline constexpr VantrelCommand CREATE_NODE{"CreateNode", {2, 5, 0, 0}, &CREATE_NODE_EX};
inline constexpr VantrelCommand RENAME_NODE{"RenameNode"};
inline constexpr VantrelCommand DUPLICATE_NODE{"DuplicateNode", {2017, 0, 0, 144}};
inline constexpr VantrelCommand DESTROY_NODE{"DestroyNode"};

// --- Metadata ---

inline constexpr VantrelCommand QUERY_META_DATA_SUPPORT{"QueryMetaDataSupport"};
inline constexpr VantrelCommand GET_META_DATA{"GetMetaData"};
inline constexpr VantrelCommand SET_META_DATA{"SetMetaData", {2, 5, 0, 0}};

// --- Clips ---

inline constexpr VantrelCommand GET_CLIP_FORMAT_EX{"GetClipFormatEx", {2017, 1, 0, 238}};
inline constexpr VantrelCommand GET_CLIP_FORMAT{"GetClipFormat", {}, &GET_CLIP_FORMAT_EX};
inline constexpr VantrelCommand GET_FRAMES_EX{"GetFramesEx", {2013, 1, 0, 6115}};
inline constexpr VantrelCommand GET_FRAMES{"GetFrames", {}, &GET_FRAMES_EX};
inline constexpr VantrelCommand ALLOCATE_FRAMES_EX{"AllocateFramesEx", {2013, 1, 0, 6115}};
inline constexpr VantrelCommand ALLOCATE_FRAMES{"AllocateFrames", {}, &ALLOCATE_FRAMES_EX};
inline constexpr VantrelCommand GET_FRAME_PATHS_EX{"GetFramePathsEx", {2012, 1, 1, 5758}};
inline constexpr VantrelCommand GET_FRAME_PATHS{"GetFramePaths", {}, &GET_FRAME_PATHS_EX};
inline constexpr VantrelCommand SET_FRAME_PATHS_EX{"SetFramePathsEx", {2012, 1, 1, 5758}};
inline constexpr VantrelCommand SET_FRAME_PATHS{"SetFramePaths", {2, 6, 0, 0}, &SET_FRAME_PATHS_EX};
inline constexpr VantrelCommand GET_STREAM_ID{"GetStreamId", {2007, 1, 0, 0}};
inline constexpr VantrelCommand GET_NB_READ_AHEADS{"GetNbReadAheads", {2010, 1, 1, 0}};

// --- Path translation ---

inline constexpr VantrelCommand TRANSLATE_PATHS{"TranslatePaths"};
inline constexpr VantrelCommand GET_TRANSLATION_GROUPS{"GetTranslationGroups"};
inline constexpr VantrelCommand GET_HOST_TRANSLATIONS{"GetHostTranslations"};
inline constexpr VantrelCommand GET_OS_TYPE_TRANSLATIONS{"GetOsTypeTranslations"};

// --- Events ---

inline constexpr VantrelCommand REGISTER_EVENTS{"RegisterEvents"};
inline constexpr VantrelCommand UNREGISTER_EVENTS{"UnregisterEvents"};

// clang-format on

}  // namespace VantrelCommands
