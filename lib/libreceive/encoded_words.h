// encoded_words.h - header fields as text (RFC 2047)
//
// Any thread; nothing is kept between calls. The time is proportional to the length of the field.

#ifndef ZELIEML_LIBRECEIVE_ENCODED_WORDS_H
#define ZELIEML_LIBRECEIVE_ENCODED_WORDS_H

#include <string>

namespace zelieml
{

// plain_text - a field as UTF-8 that fits on a line
//
// A control character becomes a blank, a byte that is no UTF-8 becomes U+FFFD.
std::string plain_text(std::string const& field);

// decoded_text - the same, with encoded words decoded
//
// Encoded words count wherever they stand, of any length, in the charsets that mails use. Blanks
// between two of them are left out. Words of the same charset that follow each other are joined
// before they are converted: some senders split a character. One that is malformed, or in a charset
// that the system cannot convert, stays as it is.
//
// Escape sequences of ISO-2022-JP outside of encoded words count too: this library sends such.
//
// Returns at most three bytes for each byte of the field.
std::string decoded_text(std::string const& field);

}  // namespace zelieml

#endif
