// Text that others chose, shown where it must not take control: a line on
// the operator's terminal, a download name in the visitor's browser.
//
// A terminal acts on C0 and C1 controls (U+009B alone starts an escape
// sequence) and shows bidi and other format controls by reordering or hiding
// the characters around them: "photo<U+202E>gpj.exe" reads "photoexe.jpg".
// Those characters are what this module finds, escapes or drops.
#ifndef SLT_PLATFORM_TERMINAL_TEXT_H_
#define SLT_PLATFORM_TERMINAL_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>

// The length (1 to 4) of the well-formed UTF-8 sequence at text[0..len) and
// its code point in *cp; 0 when the bytes there are not one (a stray
// continuation byte, an overlong form, a surrogate, beyond U+10FFFF, cut
// short). *cp is then untouched.
size_t utf8_sequence(const char* text, size_t len, uint32_t* cp);

// True for code points that act on a terminal or rearrange or hide text:
// C0 controls, DEL, C1 controls, the line and paragraph separators, and the
// format controls (Unicode category Cf: bidi marks, embeddings, overrides
// and isolates, zero-width characters, the soft hyphen, the byte order
// mark, tags and the rest of the category).
bool is_hidden_control(uint32_t cp);

// text with every byte and character a terminal could act on written out as
// an escape, so that one stored value prints as one inert piece of a line:
// tab, line feed and carriage return as "\t" "\n" "\r", a backslash as "\\",
// other C0 controls, DEL and every byte that is not part of well-formed
// UTF-8 (raw 0x80-0x9F among them) as "\xNN", the other hidden controls as
// "\u00NN"/"\uNNNN"/"\UNNNNNNNN" (lower-case hex). Everything else is kept.
std::string terminal_safe(const std::string& text);

// text without hidden controls, as characters and as raw bytes 0x80-0x9F
// that are not part of well-formed UTF-8; other bytes that are not UTF-8
// stay as they are.
std::string without_hidden_controls(const std::string& text);

#endif  // SLT_PLATFORM_TERMINAL_TEXT_H_
