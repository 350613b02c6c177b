#include "VantrelNodeTypes.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

// In the order of their numbers, which databases and applications keep.
const struct {
    const char* type;
    std::set<std::string> children;
} TYPES[] = {
    {"HOST", {"VOLUME"}},
    {"VOLUME", {"PROJECT"}},
    {"PROJECT", {"WORKSPACE", "LIBRARY", "SHARED_VAULT"}},
    {"WORKSPACE", {"LIBRARY"}},
    {"SHARED_VAULT", {"LIBRARY"}},
    {"LIBRARY", {"FOLDER", "REEL", "CLIP"}},
    {"REEL", {"CLIP"}},
    {"FOLDER", {"FOLDER", "REEL", "CLIP"}},
    {"CLIP", {}},
    {"HIRES", {}},
    {"LOWRES", {}},
    {"SLATE", {}},
    {"FILE", {}},
    {"BINENTRY", {}},
};

TEST(VantrelNodeTypes, EachHasItsNumberAndAcceptsWhatBelongsUnderItAndNothingElse) {
    int number = 0;
    for (const auto& parent : TYPES) {
        EXPECT_EQ(vantrelNodeTypeNumber(parent.type), number);
        EXPECT_EQ(vantrelFindNodeType(parent.type), parent.type);
        EXPECT_EQ(vantrelFindNodeType(std::to_string(number++)), parent.type);
        for (const auto& child : TYPES) {
            EXPECT_EQ(vantrelNodeTypeAccepts(parent.type, child.type), parent.children.count(child.type) == 1)
                << parent.type << " > " << child.type;
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

}  // namespace
