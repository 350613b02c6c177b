#include "VantrelNodeTypes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

namespace {

const char* const TYPES[] = {"HOST",    "VOLUME", "PROJECT", "WORKSPACE", "SHARED_VAULT",
                             "LIBRARY", "REEL",   "FOLDER",  "CLIP",      "HIRES",
                             "LOWRES",  "SLATE",  "FILE",    "BINENTRY"};

TEST(VantrelNodeTypes, AParentAcceptsWhatBelongsUnderItAndNothingElse) {
    const std::set<std::pair<std::string, std::string>> accepted = {
        {"HOST", "VOLUME"},          {"VOLUME", "PROJECT"},
        {"PROJECT", "WORKSPACE"},    {"PROJECT", "LIBRARY"},
        {"PROJECT", "SHARED_VAULT"}, {"WORKSPACE", "LIBRARY"},
        {"SHARED_VAULT", "LIBRARY"}, {"LIBRARY", "FOLDER"},
        {"LIBRARY", "REEL"},         {"LIBRARY", "CLIP"},
        {"FOLDER", "FOLDER"},        {"FOLDER", "REEL"},
        {"FOLDER", "CLIP"},          {"REEL", "CLIP"},
    };
    for (const char* parent : TYPES) {
        for (const char* child : TYPES) {
            EXPECT_EQ(vantrelNodeTypeAccepts(parent, child), accepted.count({parent, child}) == 1)
                << parent << " > " << child;
        }
    }
}

TEST(VantrelNodeTypes, ATextThatIsNoTypeIsUnknownAndAcceptedNowhere) {
    for (const char* text :
         {"", "clip", "CLIPS", "LIP", "|", "FOLDER|REEL", "|CLIP|", "-1", "14", "8 ", "+8", "99999999999"}) {
        EXPECT_FALSE(vantrelIsKnownNodeType(text)) << text;
        EXPECT_FALSE(vantrelNodeTypeAccepts("LIBRARY", text)) << text;
        EXPECT_FALSE(vantrelNodeTypeAccepts(text, "CLIP")) << text;
        EXPECT_EQ(vantrelFindNodeType(text), "") << text;
    }
}

TEST(VantrelNodeTypes, ATypeIsFoundByItsTextAndByItsNumber) {
    for (const char* type : TYPES) {
        EXPECT_TRUE(vantrelIsKnownNodeType(type));
        EXPECT_EQ(vantrelFindNodeType(type), type);
        EXPECT_EQ(vantrelFindNodeType(std::to_string(vantrelNodeTypeNumber(type))), type);
    }
    // Kept by applications, so they stay.
    EXPECT_EQ(vantrelNodeTypeNumber("HOST"), 0);
    EXPECT_EQ(vantrelNodeTypeNumber("CLIP"), 8);
}

}  // namespace
