#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "VantrelTranslationCodec.h"

namespace vantreld {

/// The tables by which paths of one host become paths of another (docs/vantreld.md). Immutable, so any thread
/// may use it.
class PathTranslations {
  public:
    struct Tables {
        std::vector<VantrelPathTranslationGroup> groups;
        std::vector<VantrelHostTranslation> hosts;
        std::vector<VantrelOsTypeTranslation> osTypes;
    };

    /// Without tables every path stays as it is.
    PathTranslations() = default;
    explicit PathTranslations(Tables tables);

    /// Reads a file; one that does not exist has no tables. CoException that says where the fault is when it
    /// cannot be read or understood.
    static PathTranslations load(const std::string& path);
    /// The same from its content; `path` is what errors name.
    static PathTranslations parse(const std::string& content, const std::string& path);

    const Tables& tables() const { return tables_; }

    /// The system that a host runs, as the first of its groups says; Unknown when it is in none.
    VantrelOS::OsType osTypeOf(std::string_view host) const;

    /// One path for each that is asked for. A host translation comes before one of the systems, and among
    /// several of a kind the one with the longest source path counts; the first, when they are equally long.
    std::vector<std::string> translate(const VantrelTranslationRequest& request) const;

  private:
    struct Rule;
    class HostNames;

    std::vector<Rule> hostRules(const VantrelTranslationRequest& request) const;
    std::vector<Rule> osTypeRules(const VantrelTranslationRequest& request) const;

    Tables tables_;
};

}  // namespace vantreld
