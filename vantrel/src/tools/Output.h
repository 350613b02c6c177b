#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using Json = nlohmann::ordered_json;

/// Standard output in the form that the user chose: text for people, or one JSON document. Every call throws
/// ToolError when the output cannot be written.
class Output {
  public:
    explicit Output(bool json) : json_(json) {}

    bool json() const { return json_; }

    /// A text of the library or of the command line, in the form that this output wants: as it is, or in
    /// UTF-8 when the locale has another encoding and JSON is asked for.
    std::string text(const char* text) const;

    /// A line for people. Control characters, line ends included, show as \n, \t or \xHH, so that a name is
    /// always one line and cannot command the terminal.
    void line(const std::string& text) const;

    /// Exactly these bytes.
    void bytes(const char* data, std::size_t size) const;

    /// The JSON document. Bytes that are no UTF-8 become U+FFFD.
    void document(const Json& json) const;

    /// One of several JSON documents, in a line of its own.
    void documentLine(const Json& json) const;

    /// A result with named values: the document, or a line "name: value" for each.
    void record(const Json& object) const;

    /// A list of texts: an array, or a line each.
    void list(const Json& array) const;

    /// Rows of equally many texts for people, the first one the titles, in columns.
    void table(const std::vector<std::vector<std::string>>& rows) const;

    /// Success without a result: {"ok": true}, or nothing.
    void done() const;

  private:
    void recordLines(const Json& object, const std::string& indent) const;

    const bool json_;
};

/// Lets a float print as short as it reads: 29.97, not 29.969999313354492.
double shortest(float value);
