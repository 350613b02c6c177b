#pragma once

#include <string>
#include <string_view>

/// Text between the process's locale, which applications speak, and UTF-8, which servers speak. Text that
/// needs no change is neither converted nor copied: plain ASCII, and any text in a UTF-8 locale or in the "C"
/// locale, whose programs have not chosen an encoding. Text that cannot be converted is passed on as it is,
/// so that a name stays usable. Thread-safe.
class VantrelBaseInterface {
  public:
    /// Converts many texts in one direction. Thread safety: one object is used by one thread at a time.
    class Converter {
      public:
        /// Encodings as iconv names them; null stands for the locale's own.
        Converter(const char* from, const char* to);
        Converter(const Converter&) = delete;
        Converter& operator=(const Converter&) = delete;
        ~Converter();

        /// The converted text: `text` itself when it needs no change, otherwise a view into `buffer`.
        std::string_view convert(std::string_view text, std::string& buffer);

      private:
        std::string from_;
        std::string to_;
        bool active_;
        void* handle_ = nullptr;  ///< of iconv, opened with the first text that needs it
    };

    static const char* const UTF8;

    static std::string_view localeToUTF8(std::string_view text, std::string& buffer);
    static std::string_view utf8ToLocale(std::string_view text, std::string& buffer);

    static bool isAscii(std::string_view text);
};
