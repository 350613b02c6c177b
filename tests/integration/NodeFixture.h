#pragma once

#include <map>

#include "ClientFixture.h"

/// The library beside a scripted server that has an answer to every node command.
class NodeTest : public PeerFixture {
  protected:
    static std::string child(const char* id, const char* name) {
        return PeerInfo::entry("Id", id) + PeerInfo::entry("Displ", name);
    }
    NodeTest() {
        for (const auto& reply : answers) peer.answer(reply.first, Vantrel::ScriptedPeer::ok(reply.second));
        client.init();
    }

    const std::map<std::string, std::string> answers = {
        {"QueryNodePlugInVendor", "Quorvane"},
        {"QueryNodePlugInProduct", "Store"},
        {"QueryNodePlugInVersion", "7 1"},
        {"RegisterEvents", ""},
        {"UnregisterEvents", ""},
        {"TranslatePaths", "\"/b\""},
        {"GetTranslationGroups", PeerInfo::entry("numGroups", "0")},
        {"GetHostTranslations", PeerInfo::entry("numHostTranslations", "0")},
        {"GetOsTypeTranslations", PeerInfo::entry("numOsTypeTranslations", "0")},
        {"GetChildren", "n2,a,n3,b"},
        {"GetChildrenEx", PeerInfo::entry("0", child("n2", "a")) + PeerInfo::entry("1", child("n3", "b"))},
        {"GetParentNode", "n0"},
        {"GetDisplayName", "name"},
        {"GetDisplayNameEx", "name"},
        {"GetNodeType", "0 6"},
        {"GetNodeTypeStr", "REEL"},
        {"CanCreateNode", "TRUE"},
        {"CreateNode", "n9"},
        {"CreateNodeEx", "n9"},
        {"DuplicateNode", "n9"},
        {"RenameNode", "n1"},
        {"DestroyNode", ""},
        {"QueryMetaDataSupport", "XML,BLOB"},
        {"GetMetaData", "<x/>"},
        {"SetMetaData", ""},
        {"GetClipFormat", "4 2 24 3 24 1 24 rgb 4 none m"},
        {"GetClipFormatEx",
         "w 1 4h 1 2bpp 2 24nch 1 3sz 2 24asp 1 1rate 2 24fmt 3 rgbscan 1 4metag 4 nonemeta 0 "
         "cs 0 "},
        {"GetFrames", "f1,f2,f3"},
        {"GetFramesEx", "3 2 f12 f22 f3"},
        {"AllocateFrames", "f1"},
        {"AllocateFramesEx", "1 2 f1"},
        {"GetFramePaths", "/a,/b"},
        {"GetFramePathsEx", "2 2 /a2 /b"},
        {"SetFramePaths", ""},
        {"SetFramePathsEx", ""},
        {"GetStreamId", "s1"},
        {"GetNbReadAheads", "2"},
    };

    VantrelClient client{true};
};
