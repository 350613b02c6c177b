#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>

#include "CoException.h"
#include "NodeStore.h"
#include "TemporaryDirectory.h"

namespace vantreld {

/// The text of the CoException that `action` throws; empty when it throws none.
template <typename Action>
std::string failureOf(Action action) {
    try {
        action();
    } catch (const Vantrel::CoException& error) {
        return error.what();
    }
    return {};
}

/// One attribute of a stream, as it travels.
inline std::string attribute(const std::string& name, const std::string& value) {
    return name + " " + std::to_string(value.size()) + " " + value;
}

/// A store in a folder of its own, with short ways to fill it and to look.
class StoreFixture : public testing::Test {
  protected:
    StoreFixture() { reopen(); }

    void reopen() {
        store_.reset();
        store_.emplace(directory_.path());
    }
    NodeStore& store() { return *store_; }

    std::string create(const std::string& parent, const std::string& type, const std::string& name) {
        NodeStore::NewNode node;
        node.type = type;
        node.displayName = name;
        node.format = type == "CLIP" ? "w 1 7" : "";
        return store().create(parent, node);
    }
    /// n4, under n2 and n3.
    std::string createLibrary() {
        const std::string project = create(create(store().rootId(), "VOLUME", "v"), "PROJECT", "p");
        return create(project, "LIBRARY", "l");
    }
    /// n5, with frames from n5-0 on.
    std::string createClip(std::int64_t frames) {
        const std::string clip = create(createLibrary(), "CLIP", "c");
        store().setNumFrames(clip, frames);
        return clip;
    }
    void write(const std::string& frame, const std::string& content) {
        const auto file = store().beginFrame(frame);
        file->write(content.data(), content.size());
        store().commitFrame(frame, *file);
    }
    std::string read(const std::string& frame) {
        const ReadableFile file = store().openFrame(frame);
        std::string content(file.size, '\0');
        EXPECT_EQ(::read(file.fd.get(), content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
        return content;
    }

    Vantrel::TemporaryDirectory directory_;
    std::optional<NodeStore> store_;
};

}  // namespace vantreld
