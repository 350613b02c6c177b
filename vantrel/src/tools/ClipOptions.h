#pragma once

#include <string>

#include "CommandOptions.h"
#include "Session.h"

/// What a user may say of a new clip beside its pixels.
struct ClipOptions {
    float rate = 24.0F;
    float ratio = 1.0F;
    std::string scan = "progressive";
    std::string colourSpace;

    VantrelClipFormat::ScanFormat scanFormat() const;
};

/// Adds --rate, --ratio, --scan and --colour-space.
void addClipOptions(CLI::App& command, ClipOptions& options);

/// Creates a clip with frames and, unless `keep` is called, removes it again when it goes out of scope: a
/// command that fails half-way leaves no half clip.
class NewClip {
  public:
    NewClip(Session& session, VantrelNodeHandle& parent, const std::string& name,
            const VantrelClipFormat& format, unsigned frames);
    ~NewClip();
    NewClip(const NewClip&) = delete;
    NewClip& operator=(const NewClip&) = delete;

    VantrelNodeHandle& node() { return clip_; }
    std::string id() const { return clip_.getNodeId().id(); }
    void keep() { kept_ = true; }

  private:
    void remove();

    Session& session_;
    const std::string name_;
    VantrelNodeHandle clip_;
    bool kept_ = false;
};
