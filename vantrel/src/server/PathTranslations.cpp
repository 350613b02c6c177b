#include "PathTranslations.h"

#include <strings.h>

#include <algorithm>
#include <utility>

namespace vantreld {

namespace {

using OsType = VantrelOS::OsType;

bool sameHost(std::string_view a, std::string_view b) {
    return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool isMember(const VantrelPathTranslationGroup& group, std::string_view host) {
    return sameHost(group.name, host) ||
           std::any_of(group.hosts.begin(), group.hosts.end(),
                       [host](const std::string& member) { return sameHost(member, host); });
}

bool isSeparator(char c, OsType type) {
    return c == '/' || (c == '\\' && type == VantrelOS::WindowsNT);
}

std::string_view withoutTrailingSeparators(std::string_view path, OsType type) {
    while (!path.empty() && isSeparator(path.back(), type)) path.remove_suffix(1);
    return path;
}

/// Writes a part of a path the way another system does.
std::string converted(std::string_view part, OsType from, OsType to) {
    std::string text(part);
    if (from == VantrelOS::WindowsNT && to != VantrelOS::WindowsNT) {
        std::replace(text.begin(), text.end(), '\\', '/');
    } else if (from != VantrelOS::WindowsNT && to == VantrelOS::WindowsNT) {
        std::replace(text.begin(), text.end(), '/', '\\');
    }
    return text;
}

}  // namespace

/// A translation that applies to the hosts of a request. Views into the tables.
struct PathTranslations::Rule {
    std::string_view from;  ///< without separators at its end, so that the root's is empty
    std::string_view to;

    /// Whole names count: "/mnt" is no part of "/mnt2".
    bool matches(std::string_view path, OsType type) const {
        if (path.empty() || path.compare(0, from.size(), from) != 0) return false;
        return path.size() == from.size() || isSeparator(path[from.size()], type);
    }

    std::string apply(std::string_view path, OsType fromType, OsType toType) const {
        const std::string_view rest = path.substr(from.size());
        // The path of the rule itself; of the root's rule it is the separator.
        if (rest.empty() || (from.empty() && rest.size() == 1)) return std::string(to);
        return std::string(withoutTrailingSeparators(to, toType)) + converted(rest, fromType, toType);
    }

    static const Rule* find(const std::vector<Rule>& rules, std::string_view path, OsType type) {
        const auto found = std::find_if(rules.begin(), rules.end(),
                                        [&](const Rule& rule) { return rule.matches(path, type); });
        return found != rules.end() ? &*found : nullptr;
    }

    static void longestFirst(std::vector<Rule>& rules) {
        std::stable_sort(rules.begin(), rules.end(),
                         [](const Rule& a, const Rule& b) { return a.from.size() > b.from.size(); });
    }
};

/// What the tables may call a host: its own name and the groups that it is in.
class PathTranslations::HostNames {
  public:
    HostNames(const Tables& tables, std::string_view host) : names_{host} {
        for (const VantrelPathTranslationGroup& group : tables.groups) {
            if (isMember(group, host)) names_.emplace_back(group.name);
        }
    }

    bool has(std::string_view name) const {
        return std::any_of(names_.begin(), names_.end(),
                           [name](std::string_view own) { return sameHost(own, name); });
    }

  private:
    std::vector<std::string_view> names_;
};

PathTranslations::PathTranslations(Tables tables) : tables_(std::move(tables)) {}

OsType PathTranslations::osTypeOf(std::string_view host) const {
    for (const VantrelPathTranslationGroup& group : tables_.groups) {
        if (isMember(group, host)) return group.osType;
    }
    return VantrelOS::Unknown;
}

std::vector<PathTranslations::Rule> PathTranslations::hostRules(
    const VantrelTranslationRequest& request) const {
    const HostNames source(tables_, request.srcHost);
    const HostNames destination(tables_, request.dstHost);
    std::vector<Rule> rules;
    for (const VantrelHostTranslation& translation : tables_.hosts) {
        if (!source.has(translation.srcHost) || !destination.has(translation.dstHost)) continue;
        rules.push_back(
            {withoutTrailingSeparators(translation.srcPath, request.srcType), translation.dstPath});
    }
    Rule::longestFirst(rules);
    return rules;
}

std::vector<PathTranslations::Rule> PathTranslations::osTypeRules(
    const VantrelTranslationRequest& request) const {
    std::vector<Rule> rules;
    for (const VantrelOsTypeTranslation& translation : tables_.osTypes) {
        if (translation.srcType != request.srcType || translation.dstType != request.dstType) continue;
        rules.push_back(
            {withoutTrailingSeparators(translation.srcPath, request.srcType), translation.dstPath});
    }
    Rule::longestFirst(rules);
    return rules;
}

std::vector<std::string> PathTranslations::translate(const VantrelTranslationRequest& request) const {
    const std::vector<Rule> byHost = hostRules(request);
    const std::vector<Rule> byOsType = osTypeRules(request);
    std::vector<std::string> translated;
    translated.reserve(request.paths.size());
    for (const std::string& path : request.paths) {
        const Rule* rule = Rule::find(byHost, path, request.srcType);
        if (!rule) rule = Rule::find(byOsType, path, request.srcType);
        translated.push_back(rule ? rule->apply(path, request.srcType, request.dstType) : path);
    }
    return translated;
}

}  // namespace vantreld
