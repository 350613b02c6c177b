#include "NodeStore.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "FileSizeLimit.h"
#include "ServerLimits.h"
#include "StoreFixture.h"

namespace vantreld {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class NodeStoreTest : public StoreFixture {
  protected:
    /// A clip's only frame.
    std::string createFrame(const std::string& content) {
        const std::string frame = store().frameIds(createClip(1))[0];
        write(frame, content);
        return frame;
    }
    std::size_t frameFiles() const {
        const std::filesystem::directory_iterator files(directory_.path("frames"));
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }
};

TEST_F(NodeStoreTest, EverythingIsThereAgainAfterReopening) {
    const std::string clip = createClip(2);
    store().setMetaData(clip, "XML", "<a/>");
    write(store().frameIds(clip)[1], "pixels");
    const std::string storageId = store().storageId();
    reopen();
    EXPECT_THAT(storageId, testing::StartsWith("vantreld-"));
    EXPECT_EQ(store().storageId(), storageId);
    EXPECT_EQ(store().node(clip).type, "CLIP");
    EXPECT_EQ(store().node(store().parentId(clip)).displayName, "l");
    EXPECT_EQ(store().metaData(clip, "XML"), "<a/>");
    EXPECT_EQ(store().metaData(clip, "BLOB"), "");
    EXPECT_EQ(store().clipFormat(clip), "w 1 7");
    ASSERT_EQ(store().frameIds(clip).size(), 2u);
    EXPECT_EQ(read(store().frameIds(clip)[1]), "pixels");
}

TEST_F(NodeStoreTest, DisplayNamesAreKeptByteForByteOrRefused) {
    const std::string volume = create(store().rootId(), "VOLUME", "v");
    const std::string longest(MAX_DISPLAY_NAME_BYTES, 'x');
    const std::string names[] = {"\xff\xfe\x80", "'; DROP TABLE nodes; --", longest};
    for (const std::string& name : names) create(volume, "PROJECT", name);
    for (const std::string& name : {std::string(), std::string("a\0b", 3), longest + "x"}) {
        EXPECT_NE(failureOf([&] { create(volume, "PROJECT", name); }), "");
        EXPECT_NE(failureOf([&] { store().rename(volume, name); }), "");
    }
    reopen();
    std::vector<std::string> kept;
    for (const auto& child : store().children(volume)) kept.push_back(child.displayName);
    EXPECT_THAT(kept, testing::ElementsAreArray(names));
    EXPECT_EQ(store().node(volume).displayName, "v");
}

TEST_F(NodeStoreTest, NodeIdsHaveOneSpellingAndAreNeverUsedAgain) {
    const std::string gone = create(store().rootId(), "VOLUME", "v");
    store().destroy(gone);
    EXPECT_NE(create(store().rootId(), "VOLUME", "v"), gone);
    const std::string root = store().rootId();
    for (const std::string& id :
         {gone, std::string(), root + " ", root + ",", "N" + root.substr(1), root.substr(1),
          "n0" + root.substr(1), std::string("n-1"), std::string("n99999999999999999999")}) {
        EXPECT_EQ(failureOf([&] { store().node(id); }), "Node '" + id + "' does not exist.");
    }
    EXPECT_EQ(root.find_first_of(" ,\"\\"), std::string::npos);
}

TEST_F(NodeStoreTest, TheRootStaysAndAParentRefusesWhatDoesNotBelongUnderIt) {
    const std::string root = store().rootId();
    const std::string library = createLibrary();
    EXPECT_EQ(failureOf([&] { store().destroy(root); }), "The root node cannot be destroyed.");
    EXPECT_EQ(failureOf([&] { store().rename(root, "x"); }), "The root node cannot be renamed.");
    EXPECT_EQ(failureOf([&] { create(library, "VOLUME", "x"); }),
              "Cannot create 'x' under node '" + library + "': a LIBRARY accepts no VOLUME.");
    EXPECT_EQ(failureOf([&] { store().duplicate(root, library, "x"); }),
              "Cannot create 'x' under node '" + root + "': a HOST accepts no LIBRARY.");
    EXPECT_TRUE(store().children(library).empty());
}

TEST_F(NodeStoreTest, DestroyingTakesTheSubtreeAndItsFilesAndNothingElse) {
    const std::string library = createLibrary();
    const std::string kept = create(library, "CLIP", "kept");
    const std::string folder = create(library, "FOLDER", "f");
    const std::string clip = create(create(folder, "REEL", "r"), "CLIP", "c");
    for (const std::string& each : {kept, clip}) {
        store().setNumFrames(each, 1);
        store().setMetaData(each, "XML", each);
        write(each + "-0", each);
    }
    store().destroy(folder);
    EXPECT_NE(failureOf([&] { store().node(clip); }), "");
    EXPECT_EQ(failureOf([&] { store().openFrame(clip + "-0"); }), "Frame '" + clip + "-0' does not exist.");
    EXPECT_EQ(store().children(library).size(), 1u);
    EXPECT_EQ(read(kept + "-0"), kept);
    EXPECT_EQ(store().metaData(kept, "XML"), kept);
    EXPECT_EQ(frameFiles(), 1u);
}

TEST_F(NodeStoreTest, ADuplicateIsIndependentOfItsSource) {
    const std::string library = createLibrary();
    const std::string folder = create(library, "FOLDER", "f");
    const std::string clip = create(folder, "CLIP", "c");
    store().setNumFrames(clip, 1);
    store().setMetaData(clip, "XML", "<x/>");
    write(clip + "-0", "one");
    // Below its own source: the copy must not copy itself.
    const std::string copy = store().duplicate(folder, folder, "copy");
    EXPECT_EQ(store().node(copy).displayName, "copy");
    ASSERT_EQ(store().children(copy).size(), 1u);
    const std::string clipCopy = store().children(copy)[0].id;
    EXPECT_EQ(store().metaData(clipCopy, "XML"), "<x/>");
    write(clip + "-0", "two");
    EXPECT_EQ(read(clipCopy + "-0"), "one");
    store().destroy(clip);
    EXPECT_EQ(read(clipCopy + "-0"), "one");
    EXPECT_EQ(frameFiles(), 1u);
    EXPECT_EQ(store().node(store().duplicate(library, clipCopy, "")).displayName, "c");
}

TEST_F(NodeStoreTest, TheNumberOfFramesIsTheTotalThatWasSet) {
    const std::string clip = createClip(3);
    const auto ids = store().frameIds(clip);
    write(ids[0], "0");
    write(ids[2], "2");
    store().setNumFrames(clip, 5);
    ASSERT_EQ(store().frameIds(clip).size(), 5u);
    EXPECT_EQ(read(store().frameIds(clip)[2]), "2");
    store().setNumFrames(clip, 1);
    EXPECT_THAT(store().frameIds(clip), ElementsAre(ids[0]));
    EXPECT_EQ(frameFiles(), 1u);
    store().setNumFrames(clip, 3);
    EXPECT_EQ(failureOf([&] { store().openFrame(ids[2]); }), "Frame '" + ids[2] + "' has not been written.");
    EXPECT_EQ(read(ids[0]), "0");
    for (const std::int64_t count : {std::int64_t(-1), MAX_CLIP_FRAMES + 1, INT64_MAX, INT64_MIN})
        EXPECT_THAT(failureOf([&] { store().setNumFrames(clip, count); }), HasSubstr(std::to_string(count)));
    EXPECT_EQ(store().frameIds(clip).size(), 3u);
}

TEST_F(NodeStoreTest, AnUnfinishedWriteLeavesTheEarlierFrameAndNoFile) {
    const std::string frame = createFrame("earlier");
    { store().beginFrame(frame)->write("half", 4); }
    {
        const auto content = store().beginFrame(frame);
        content->write("later", 5);
        const Vantrel::FileSizeLimit fullDisk(std::filesystem::file_size(directory_.path("vantreld.db-wal")));
        EXPECT_THAT(failureOf([&] { store().commitFrame(frame, *content); }),
                    HasSubstr("Cannot use database"));
    }
    EXPECT_EQ(read(frame), "earlier");
    EXPECT_EQ(frameFiles(), 1u);
    write(frame, "later");
    // What a killed server leaves goes at the next start.
    directory_.write("frames/0123456789abcdef", "half");
    reopen();
    EXPECT_EQ(read(frame), "later");
    EXPECT_EQ(frameFiles(), 1u);
}

TEST_F(NodeStoreTest, WhatIsNotItsOwnInTheRootStays) {
    const char* const foreign[] = {"frames/shot.0001.dpx", "frames/0123456789abcdeF",
                                   "uploads/0123456789abcdef0", "uploads/notes.txt"};
    for (const char* each : foreign) directory_.write(each, "precious");
    directory_.write("uploads/0123456789abcdef", "half");
    reopen();
    for (const char* each : foreign) EXPECT_EQ(directory_.read(each), "precious") << each;
    EXPECT_FALSE(std::filesystem::exists(directory_.path("uploads/0123456789abcdef")));
}

TEST_F(NodeStoreTest, ASecondServerIsKeptOutAndFramesThatLostTheirDatabaseAreNotSweptAway) {
    createFrame("precious");
    const auto open = [this] { NodeStore another(directory_.path()); };
    EXPECT_THAT(failureOf(open), HasSubstr("is in use by another server."));
    store_.reset();
    std::filesystem::rename(directory_.path("vantreld.db"), directory_.path("saved"));
    EXPECT_THAT(failureOf(open), HasSubstr("vantreld.db"));
    EXPECT_EQ(frameFiles(), 1u);
}

TEST_F(NodeStoreTest, AFrameThatVanishesDuringItsWriteIsNotBroughtBack) {
    const std::string frame = createFrame("old");
    {
        const auto content = store().beginFrame(frame);
        store().setNumFrames("n5", 0);
        EXPECT_EQ(failureOf([&] { store().commitFrame(frame, *content); }),
                  "Frame '" + frame + "' does not exist.");
    }
    EXPECT_EQ(frameFiles(), 0u);
}

TEST_F(NodeStoreTest, AnOpenFrameOutlivesItsOverwriting) {
    const std::string frame = createFrame("old");
    const ReadableFile file = store().openFrame(frame);
    write(frame, "new content");
    char content[4] = {};
    ASSERT_EQ(::read(file.fd.get(), content, 3), 3);
    EXPECT_STREQ(content, "old");
    EXPECT_EQ(read(frame), "new content");
}

TEST_F(NodeStoreTest, LinkedFramesStayWithinTheFileFolder) {
    const std::string clip = createClip(0);
    directory_.write("files/in.raw", "linked");
    directory_.write("out.raw", "secret");
    const std::string root = std::filesystem::canonical(directory_.path());
    const std::vector<std::string> paths = {"in.raw",     root + "/files/in.raw", "",
                                            "../out.raw", root + "/out.raw",      root + "/files/../out.raw",
                                            "missing"};
    store().setFramePaths(clip, paths);
    EXPECT_EQ(store().framePaths(clip), paths);
    const auto ids = store().frameIds(clip);
    ASSERT_EQ(ids.size(), paths.size());
    EXPECT_EQ(read(ids[0]), "linked");
    EXPECT_EQ(read(ids[1]), "linked");
    for (std::size_t i = 2; i < ids.size(); ++i)
        EXPECT_NE(failureOf([&] { store().openFrame(ids[i]); }), "") << i;
    write(ids[3], "own");
    EXPECT_EQ(read(ids[3]), "own");
    EXPECT_EQ(directory_.read("out.raw"), "secret");
}

}  // namespace
}  // namespace vantreld
