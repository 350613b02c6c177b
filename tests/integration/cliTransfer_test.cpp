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
        return readFile(folder.path("frame"));
    }
};

constexpr int WIDTH = 7;
constexpr int HEIGHT = 5;

/// Bytes that differ from one to the next and from frame to frame. Floating-point samples made of them, low
/// byte first, are ordinary numbers, negative ones among them.
std::string frameOf(int channels, int bitsPerChannel, int index) {
    std::string out(static_cast<std::size_t>(WIDTH * HEIGHT * channels * bitsPerChannel / 8), '\0');
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] =
            static_cast<char>((i * 37 + 11) % 59 + (i % 3 == 0 ? 128 : 0) + static_cast<unsigned>(index));
    }
    return out;
}

TEST_F(CliTransferTest, ExportedImagesImportToTheSameFrames) {
    const struct {
        const char* as;
        const char* tag;
        int channels;
        int bitsPerChannel;
    } rows[] = {
        {"png", "mono", 1, 8},           {"png", "rgb", 3, 8},
        {"png", "rgba", 4, 8},           {"png", "rgb_le", 3, 16},
        {"png", "rgba_le", 4, 16},       {"tif", "rgb", 3, 8},
        {"tif", "rgba_le", 4, 16},       {"tif", "rgb_float_le", 3, 16},
        {"tif", "rgba_float_le", 4, 32}, {"dpx", "rgb", 3, 8},
        {"dpx", "rgba", 4, 8},           {"dpx", "rgb_le", 3, 16},
        {"exr", "mono_float_le", 1, 16}, {"exr", "rgb_float_le", 3, 16},
        {"exr", "rgba_float_le", 4, 32},
    };
    int number = 0;
    for (const auto& [as, tag, channels, bits] : rows) {
        SCOPED_TRACE(std::string(as) + " " + tag + " " + std::to_string(bits));
        const std::string name = "clip " + std::to_string(number++);
        good({"create-clip", server, REEL, name, "--width", std::to_string(WIDTH), "--height",
              std::to_string(HEIGHT), "--bits", std::to_string(channels * bits), "--channels",
              std::to_string(channels), "--format-tag", tag, "--frames", "2"});
        for (const int i : {0, 1}) {
            const std::string file = folder.write("in", frameOf(channels, bits, i));
            good({"write-frame", server, path(name), std::to_string(i), file});
        }
        const nlohmann::json files = json({"export", server, path(name), folder.path(name), "--as", as});
        ASSERT_EQ(files.size(), 2U);
        EXPECT_EQ(files[1], folder.path(name + "/" + name + ".0002." + as));
        good({"import", server, REEL, name + " again", files[0], files[1]});
        EXPECT_EQ(json({"stat", server, path(name + " again")})["format"]["formatTag"], tag);
        for (const int i : {0, 1}) {
            EXPECT_TRUE(frame(name + " again", i) == frameOf(channels, bits, i)) << "frame " << i;
        }
    }
}

// PPM holds the samples openly: rows from the top, rgb interleaved, 16-bit samples high byte first.
TEST_F(CliTransferTest, FramesHoldTheSamplesOfTheImageInRowsFromTheTop) {
    const std::string eight = folder.write("a.ppm", std::string("P6\n2 2\n255\n") +
                                                        "\x01\x02\x03\x04\x05\x06"
                                                        "\x07\x08\x09\x0A\x0B\x0C");
    good({"import", server, REEL, "eight", eight});
    EXPECT_EQ(frame("eight", 0), "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C");
    const nlohmann::json format = json({"stat", server, path("eight")})["format"];
    EXPECT_EQ(format["formatTag"], "rgb");
    EXPECT_EQ(format["bitsPerPixel"], 24);
    EXPECT_EQ(format["frameBufferSize"], 12);

    const std::string sixteen = folder.write(
        "b.ppm", std::string("P6\n1 2\n65535\n") + "\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C");
    good({"import", server, REEL, "sixteen", sixteen, "--rate", "25", "--scan", "field1_odd"});
    EXPECT_EQ(frame("sixteen", 0), "\x02\x01\x04\x03\x06\x05\x08\x07\x0A\x09\x0C\x0B");
    const nlohmann::json wide = json({"stat", server, path("sixteen")})["format"];
    EXPECT_EQ(wide["formatTag"], "rgb_le");
    EXPECT_EQ(wide["bitsPerPixel"], 48);
    EXPECT_EQ(wide["frameRate"], 25.0);
    EXPECT_EQ(wide["scanFormat"], "field1_odd");
}

TEST_F(CliTransferTest, BigEndianFramesExportInTheOrderOfTheirTag) {
    good({"create-clip", server, REEL, "be", "--width", "1", "--height", "1", "--bits", "48", "--channels",
          "3", "--format-tag", "rgb", "--frames", "1"});
    good({"write-frame", server, path("be"), "0", folder.write("in", "\x01\x02\x03\x04\x05\x06")});
    const nlohmann::json files = json({"export", server, path("be"), folder.path("be"), "--as", "tif"});
    good({"import", server, REEL, "le", files.at(0)});
    EXPECT_EQ(frame("le", 0), "\x02\x01\x04\x03\x06\x05");
}

TEST_F(CliTransferTest, RawExportWritesWhateverTheFramesHold) {
    good({"create-clip", server, REEL, "sly/../name\n", "--width", "2", "--height", "2", "--format-tag",
          "jpg", "--frame-size", "5", "--frames", "1"});
    const std::string id = "id:" + json({"ls", server, REEL})[0]["id"].get<std::string>();
    good({"write-frame", server, id, "0", folder.write("in", "12345")});
    const nlohmann::json files = json({"export", server, id, folder.path("raw"), "--as", "raw"});
    EXPECT_EQ(files[0], folder.path("raw/sly_.._name_.0001.raw"));
    EXPECT_EQ(readFile(files[0]), "12345");
    const ChildProcess::Result refused = run({"export", server, id, folder.path("png"), "--as", "png"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.err, HasSubstr("'jpg'"));
    EXPECT_FALSE(std::filesystem::exists(folder.path("png")));
}

TEST_F(CliTransferTest, AnImportThatFailsLeavesNoClip) {
    const std::string good1 = folder.write("good.ppm", std::string("P6\n2 1\n255\n") + "abcdef");
    const std::string wide = folder.write("wide.ppm", std::string("P6\n3 1\n255\n") + "abcdefghi");
    const std::string mono = folder.write("mono.pgm", std::string("P5\n2 1\n255\n") + "ab");
    const std::string cut = folder.write("cut.png", std::string("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16));
    const std::pair<std::string, std::string> rows[] = {
        {wide, REEL}, {mono, REEL}, {cut, REEL}, {good1, "/stor1"}};
    for (const auto& [file, parent] : rows) {
        const ChildProcess::Result result = run({"import", server, parent, "new", good1, file});
        EXPECT_EQ(result.status, 1) << file;
        EXPECT_TRUE(file == good1 || result.err.find(file) != std::string::npos) << result.err;
        EXPECT_EQ(json({"ls", server, REEL}).size(), 0U) << file;
    }
}

// The pixels of the last image turn out to be missing when the clip and most of its frames are there already.
TEST_F(CliTransferTest, AnImportThatFailsHalfWayRemovesTheClip) {
    const std::string whole =
        folder.write("whole.ppm", std::string("P6\n64 64\n255\n") + std::string(64 * 64 * 3, 'x'));
    good({"import", server, REEL, "seed", whole});
    const nlohmann::json files = json({"export", server, path("seed"), folder.path("seed"), "--as", "png"});
    const std::string png = readFile(files[0]);
    const std::string cut = folder.write("cut.png", png.substr(0, png.size() - 40));
    const ChildProcess::Result result = run({"import", server, REEL, "new", whole, whole, cut});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("cut.png"));
    EXPECT_EQ(good({"ls", server, REEL}), "seed\n");
}

}  // namespace
