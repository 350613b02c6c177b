#include "VantrelNodeTypes.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

// Each type with those that it accepts, in the order of their numbers, which databases and applications keep.
const std::pair<std::string, std::string> TYPES[] = {{"HOST", "VOLUME "},
                                                     {"VOLUME", "PROJECT "},
                                                     {"PROJECT", "WORKSPACE SHARED_VAULT LIBRARY "},
                                                     {"WORKSPACE", "LIBRARY "},
                                                     {"SHARED_VAULT", "LIBRARY "},
                                                     {"LIBRARY", "REEL FOLDER CLIP "},
                                                     {"REEL", "CLIP "},
                                                     {"FOLDER", "REEL FOLDER CLIP "},
                                                     {"CLIP", ""},
                                                     {"HIRES", ""},
                                                     {"LOWRES", ""},
                                                     {"SLATE", ""},
                                                     {"FILE", ""},
                                                     {"BINENTRY", ""}};

TEST(VantrelNodeTypes, EachHasItsNumberAndAcceptsWhatBelongsUnderItAndNothingElse) {
    int number = 0;
    for (const auto& [parent, accepted] : TYPES) {
        EXPECT_EQ(vantrelNodeTypeNumber(parent), number);
        EXPECT_EQ(vantrelFindNodeType(parent), parent);
        EXPECT_EQ(vantrelFindNodeType(std::to_string(number++)), parent);
        std::string children;
        for (const auto& [child, none] : TYPES)
            if (vantrelNodeTypeAccepts(parent, child)) children += child + ' ';
        EXPECT_EQ(children, accepted) << parent;
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
