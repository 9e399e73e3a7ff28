// libconf.h - the settings file: one line for a key and its value
//
// A line written here is the key, " = ", the value, CR, LF. A line that begins with "#" is a
// comment. Any other line belongs to every key that stands anywhere in it, and the first line of
// the file that contains a key is the one that is read for it: with "smtp_auth_type = auto" above
// "smtp_auth = yes", the key smtp_auth has the value auto.
//
// Lines have at most 1023 characters, the CR counted. A longer one ends the reading of a file.
//
// Threads and processes: any, and nothing keeps them apart. A reader that comes while a writer
// puts the new file in the old one's place finds no file; otherwise it reads the old file or the
// new one. Two writers at once write one temporary file: they can fail, lose each other's change,
// or lose settings that neither meant to touch, all of them at worst. Allow one writer at a time.

#ifndef ZELIEML_LIBCONF_LIBCONF_H
#define ZELIEML_LIBCONF_LIBCONF_H

namespace zelieml
{

// conf_get_string - read the value of a key
//
// key   text to look for; matched anywhere in a line, case and all
// val   receives the value and its NUL; cleared in all its bytes once a line was found
// len   in: bytes at val; a value of v characters needs v + 2. Out: characters of the value
// path  settings file
//
// The value begins after the first "=" of the line and the blanks that follow it, and goes up to
// the CR; blanks before the CR are part of it. In a line that lacks its CR the last character is
// taken for it and lost. The file is opened and closed, nothing is remembered.
//
// Returns 0. Returns -1 with *len 0 when an argument is null, the file cannot be opened or read or
// is no regular file, no line up to the first overlong one contains the key, or the value does not
// fit; -1 with *len as it was when the line has no "=".
int conf_get_string(char const* key, char* val, unsigned int* len, char const* path);

// conf_set_string - set the value of a key
//
// key   not empty, not beginning with "#", without "=", CR and LF: what it sets can be read back
// val   without CR and LF; key and val make a line of at most 1023 characters. Blanks at its
//       beginning are written, but not read back.
// path  settings file; made when there is none
//
// Every line that contains the key is replaced; without one, a line is added at the end. Comments
// and all other lines keep all their bytes and their order; empty lines go.
//
// The new text is written to "<path>.tmp", which gets the permission bits of the settings file and
// then its name. A settings file that is a symbolic link becomes a file; what the link pointed to
// stays as it was. "<path>.bak" is deleted if it exists; nothing is ever written under this name.
//
// Returns 0. Returns -1 when an argument is null or makes no line, a line of the file is overlong,
// a file cannot be read, written, removed or renamed, the settings file is no regular file, or
// another writer took the temporary file away. The settings file is then as it was, or an empty one
// has been made when there was none; except when the renaming at the very end failed: then only
// "<path>.tmp" is left, and it is complete. In other failures it can be left too, and is
// incomplete.
int conf_set_string(char const* key, char const* val, char const* path);

}  // namespace zelieml

#endif
