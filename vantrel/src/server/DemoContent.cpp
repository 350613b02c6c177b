#include "DemoContent.h"

#include <vantrel/VantrelFormats.h>

#include <iterator>

#include "VantrelClipFormatCodec.h"
#include "rcAttrStream.h"

namespace vantreld {

namespace {

constexpr int WIDTH = 1920;
constexpr int HEIGHT = 1080;
constexpr int CHANNELS = 3;
constexpr int NUM_FRAMES = 24;
constexpr float FRAME_RATE = 24.0F;
constexpr std::size_t FRAME_SIZE = std::size_t(WIDTH) * HEIGHT * CHANNELS;

constexpr unsigned char BARS[][CHANNELS] = {
    {191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
    {191, 0, 191},   {191, 0, 0},   {0, 0, 191},   {16, 16, 16},
};
constexpr int BAR_WIDTH = WIDTH / static_cast<int>(std::size(BARS));
constexpr int STEP = WIDTH / NUM_FRAMES;  // the bars come round once in the clip

std::string barsFormat() {
    const VantrelClipFormat format(WIDTH, HEIGHT, 8 * CHANNELS, CHANNELS, FRAME_SIZE, FRAME_RATE, 1.0F,
                                   VantrelClipFormat::PROGRESSIVE, VantrelClipFormat::FORMAT_RGB(), nullptr,
                                   "");
    Vantrel::rcAttrStream stream;
    Vantrel::VantrelClipFormatCodec::toStream(format, stream);
    return stream.text();
}

std::string createContainer(NodeStore& store, const std::string& parent, const char* type, const char* name) {
    NodeStore::NewNode node;
    node.type = type;
    node.displayName = name;
    return store.create(parent, node);
}

}  // namespace

std::string demoFrame(int index) {
    std::string row;
    row.reserve(std::size_t(WIDTH) * CHANNELS);
    for (int x = 0; x < WIDTH; ++x) {
        const unsigned char* bar = BARS[(x + index * STEP) % WIDTH / BAR_WIDTH];
        row.append(bar, bar + CHANNELS);
    }
    std::string frame;
    frame.reserve(FRAME_SIZE);
    for (int y = 0; y < HEIGHT; ++y) frame += row;
    return frame;
}

void addDemoContent(NodeStore& store) {
    if (!store.isEmpty()) return;
    const std::string volume = createContainer(store, store.rootId(), "VOLUME", "stor1");
    const std::string project = createContainer(store, volume, "PROJECT", "demo");
    const std::string library = createContainer(store, project, "LIBRARY", "Default Library");
    const std::string reel = createContainer(store, library, "REEL", "reel 1");
    NodeStore::NewNode bars;
    bars.type = "CLIP";
    bars.displayName = "bars";
    bars.format = barsFormat();
    const std::string clip = store.create(reel, bars);
    store.setNumFrames(clip, NUM_FRAMES);
    int index = 0;
    for (const std::string& id : store.frameIds(clip)) {
        const std::string pixels = demoFrame(index++);
        const std::unique_ptr<NewFile> content = store.beginFrame(id);
        content->write(pixels.data(), pixels.size());
        store.commitFrame(id, *content);
    }
}

}  // namespace vantreld
