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

struct Pixels {
    const char* tag;
    int channels;
    int bitsPerChannel;
};

constexpr int WIDTH = 7;
constexpr int HEIGHT = 5;

std::string littleEndian(unsigned value, int bytes) {
    std::string out;
    for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i));
    return out;
}

// Values that differ from sample to sample and from frame to frame. Those of floating-point samples are
// ordinary numbers, negative ones and ones above 1 included.
std::string sample(const Pixels& pixels, unsigned number) {
    if (pixels.bitsPerChannel == 8) return littleEndian(number * 37 + 11, 1);
    if (std::string(pixels.tag).find("float") == std::string::npos) return littleEndian(number * 7919 + 5, 2);
    const unsigned sign = number % 3 == 0 ? 1 : 0;
    if (pixels.bitsPerChannel == 16) return littleEndian((sign << 15) | (0x3000 + number * 13), 2);
    return littleEndian((sign << 31) | (0x3E000000U + number * 54321), 4);
}

std::string frameOf(const Pixels& pixels, unsigned seed) {
    std::string out;
    const unsigned samples = static_cast<unsigned>(WIDTH * HEIGHT * pixels.channels);
    for (unsigned i = 0; i < samples; ++i) out += sample(pixels, i + seed * 1000);
    return out;
}

TEST_F(CliTransferTest, ExportedImagesImportToTheSameFrames) {
    struct Row {
        const char* as;
        Pixels pixels;
    };
    const Row rows[] = {
        {"png", {"mono", 1, 8}},           {"png", {"rgb", 3, 8}},
        {"png", {"rgba", 4, 8}},           {"png", {"rgb_le", 3, 16}},
        {"png", {"rgba_le", 4, 16}},       {"tif", {"rgb", 3, 8}},
        {"tif", {"rgba_le", 4, 16}},       {"tif", {"rgb_float_le", 3, 16}},
        {"tif", {"rgba_float_le", 4, 32}}, {"dpx", {"rgb", 3, 8}},
        {"dpx", {"rgba", 4, 8}},           {"dpx", {"rgb_le", 3, 16}},
        {"exr", {"mono_float_le", 1, 16}}, {"exr", {"rgb_float_le", 3, 16}},
        {"exr", {"rgba_float_le", 4, 32}},
    };
    int number = 0;
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.as) + " " + row.pixels.tag + " " +
                     std::to_string(row.pixels.bitsPerChannel));
        const std::string name = "clip " + std::to_string(number++);
        good({"create-clip", server, REEL, name, "--width", std::to_string(WIDTH), "--height",
              std::to_string(HEIGHT), "--bits",
              std::to_string(row.pixels.channels * row.pixels.bitsPerChannel), "--channels",
              std::to_string(row.pixels.channels), "--format-tag", row.pixels.tag, "--frames", "2"});
        for (const unsigned i : {0U, 1U}) {
            const std::string file = folder.write("in", frameOf(row.pixels, i));
            good({"write-frame", server, path(name), std::to_string(i), file});
        }
        const nlohmann::json files = json({"export", server, path(name), folder.path(name), "--as", row.as});
        ASSERT_EQ(files.size(), 2U);
        EXPECT_EQ(files[1], folder.path(name + "/" + name + ".0002." + row.as));
        good({"import", server, REEL, name + " again", files[0], files[1]});
        EXPECT_EQ(json({"stat", server, path(name + " again")})["format"]["formatTag"], row.pixels.tag);
        for (const unsigned i : {0U, 1U})
            EXPECT_TRUE(frame(name + " again", static_cast<int>(i)) == frameOf(row.pixels, i))
                << "frame " << i;
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
    struct Row {
        std::string file;
        std::string parent;
    };
    const Row rows[] = {{wide, REEL}, {mono, REEL}, {cut, REEL}, {good1, "/stor1"}};
    for (const Row& row : rows) {
        const ChildProcess::Result result = run({"import", server, row.parent, "new", good1, row.file});
        EXPECT_EQ(result.status, 1) << row.file;
        EXPECT_TRUE(row.file == good1 || result.err.find(row.file) != std::string::npos) << result.err;
        EXPECT_EQ(json({"ls", server, REEL}).size(), 0U) << row.file;
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
