// Control characters in texts that come from users and the store (labels, serial numbers,
// certificate names): a terminal acts on them, so the tool never prints them as they are.
#pragma once

#include <string>

namespace softtoken {

// True when text holds a C0 control (0x00 to 0x1F), DEL (0x7F) or a C1 control written in UTF-8
// (U+0080 to U+009F, the bytes C2 80 to C2 9F).
bool hasControlCharacters(const std::string& text);

// The text with every such character written as \xHH (each byte of a C1 control), and the
// backslash itself as \\, so that the printed form is one line and reads back unambiguously.
// Everything else, UTF-8 included, stays as it is.
std::string printable(const std::string& text);

}  // namespace softtoken
