#include "base/Localisation.h"

#include <clocale>
#include <libintl.h>

namespace velmo {

namespace {

constexpr const char* domain = "velmo-mail";

}

void startLocalisation(const char* directory) {
    std::setlocale(LC_ALL, "");
    // Numbers in files and protocols are written with a point, whatever the language.
    std::setlocale(LC_NUMERIC, "C");
    bindtextdomain(domain, directory);
    bind_textdomain_codeset(domain, "UTF-8");
}

std::string tr(const char* text) {
    return dgettext(domain, text);
}

std::string trNoted(const char* note, const char* text) {
    // GNU gettext keeps a context in front of the text, with EOT between the two.
    const std::string key = std::string(note) + '\004' + text;
    const char* found = dgettext(domain, key.c_str());
    return found == key.c_str() ? text : found;
}

std::string trCount(const char* one, const char* many, unsigned long count) {
    const char* found = dngettext(domain, one, many, count);
    return fmt::vformat(found, fmt::make_format_args(count));
}

}
