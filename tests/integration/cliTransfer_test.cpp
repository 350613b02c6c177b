// Image files and frames through the client, byte for byte.
#include "CliFixture.h"

using ::testing::HasSubstr;

namespace {

class CliTransferTest : public CliFixture {
  protected:
    void SetUp() override { makeReel(); }

    static std::string path(const std::string& clip) { return std::string(REEL) + "/" + clip; }

    std::string frame(const std::string& clip, int index) const {
        good({"read-frame", server, path(clip), std::to_string(index), "--output", folder.path("frame")});
        return folder.read("frame");
    }
};

TEST_F(CliTransferTest, ExportedImagesImportToTheSameFrames) {
    good({"create-clip", server, REEL, "be", "--width", "1", "--height", "1", "--bits", "48", "--channels",
          "3", "--format-tag", "rgb", "--frames", "2"});
    good({"write-frame", server, path("be"), "0", folder.write("in", "\x01\x02\x03\x04\x05\x06")});
    good({"write-frame", server, path("be"), "1", folder.write("in", "\x07\x08\x09\x0A\x0B\x0C")});
    const nlohmann::json files = json({"export", server, path("be"), folder.path("be"), "--as", "tif"});
    ASSERT_EQ(files, nlohmann::json({folder.path("be/be.0001.tif"), folder.path("be/be.0002.tif")}));
    good({"import", server, REEL, "le", files[0], files[1]});
    EXPECT_EQ(frame("le", 0), "\x02\x01\x04\x03\x06\x05");
    EXPECT_EQ(frame("le", 1), "\x08\x07\x0A\x09\x0C\x0B");
}

// PPM holds the samples openly: rows from the top, rgb interleaved, 16-bit samples high byte first.
TEST_F(CliTransferTest, FramesHoldTheSamplesOfTheImageInRowsFromTheTop) {
    const std::string image = folder.write(
        "a.ppm", std::string("P6\n1 2\n65535\n") + "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C");
    good({"import", server, REEL, "clip", image, "--rate", "25", "--scan", "field1_odd"});
    EXPECT_EQ(frame("clip", 0), "\x02\x01\x04\x03\x06\x05\x08\x07\x0A\x09\x0C\x0B");
    const nlohmann::json format = json({"stat", server, path("clip")})["format"];
    EXPECT_EQ(format["formatTag"], "rgb_le");
    EXPECT_EQ(format["bitsPerPixel"], 48);
    EXPECT_EQ(format["frameBufferSize"], 12);
    EXPECT_EQ(format["frameRate"], 25.0);
    EXPECT_EQ(format["scanFormat"], "field1_odd");
}

TEST_F(CliTransferTest, RawExportWritesWhateverTheFramesHold) {
    good({"create-clip", server, REEL, "sly/../name\n", "--width", "2", "--height", "2", "--format-tag",
          "jpg", "--frame-size", "5", "--frames", "1"});
    const std::string id = "id:" + json({"ls", server, REEL})[0]["id"].get<std::string>();
    good({"write-frame", server, id, "0", folder.write("in", "12345")});
    const nlohmann::json files = json({"export", server, id, folder.path("raw"), "--as", "raw"});
    EXPECT_EQ(files[0], folder.path("raw/sly_.._name_.0001.raw"));
    EXPECT_EQ(folder.read("raw/sly_.._name_.0001.raw"), "12345");
    const ChildProcess::Result refused = run({"export", server, id, folder.path("png"), "--as", "png"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("'jpg'"));
    EXPECT_FALSE(std::filesystem::exists(folder.path("png")));
}

TEST_F(CliTransferTest, AnImportThatFailsLeavesNoClip) {
    const std::string pixels(64 * 64 * 3, 'x');
    const std::string whole = folder.write("whole.ppm", "P6\n64 64\n255\n" + pixels);
    good({"import", server, REEL, "seed", whole});
    good({"export", server, path("seed"), folder.path("seed"), "--as", "png"});
    const std::string png = folder.read("seed/seed.0001.png");
    const std::pair<std::string, std::string> rows[] = {
        {folder.write("mono.pgm", "P5\n64 64\n255\n" + pixels), REEL},
        // Its pixels turn out to be missing when the clip and most of its frames are there already.
        {folder.write("cut.png", png.substr(0, png.size() - 40)), REEL},
        {whole, "/stor1"},
    };
    for (const auto& [file, parent] : rows) {
        const ChildProcess::Result result = run({"import", server, parent, "new", whole, whole, file});
        EXPECT_EQ(result.status, 1) << file;
        EXPECT_THAT(result.err, HasSubstr(file == whole ? "new" : file));
        EXPECT_EQ(good({"ls", server, REEL}), "seed\n") << file;
    }
}

}  // namespace
