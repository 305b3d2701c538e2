// The string builtins: searching, cutting, splitting, cleaning and quoting
// script text.
//
// Strings are byte strings and offsets are byte offsets from 0; a search that
// finds nothing answers INT -1. A text argument is read through the value's
// to-string form, so a number passed as text works, and no builtin changes an
// argument unless it says so (`extract_string` cuts its found region out of a
// text passed with `#`).
//
// Many of these were written to let scripts handle source-like text, so
// several know about quotes and brackets (`specialfind`, `specialsplit`,
// `splitf`, `stripstring`, `format_clause`).
//
// A wrong call is reported in one of two ways, fixed per builtin: raised as a
// run-time error naming the builtin ("wrong params! substr"), or logged as
// "wrong params!" against the calling block. Either way the builtin goes on
// and answers the empty value of its result type: the empty string, an empty
// JSON array, 0, or -1 for the raised searches.
//
// Every body has the signature of builtins/registry.h and lives in namespace
// `lib` under its script name.
#pragma once

#include "builtins/registry.h"

namespace vrk {

namespace lib {

// builtins/strings.cpp: searching and testing
VRK_BUILTIN(regex_search);     // a stub: reports and answers nothing
VRK_BUILTIN(substr);           // (text, start, length) a piece of the text
VRK_BUILTIN(replace);          // (text, from, to) every occurrence, left to right
VRK_BUILTIN(find);             // (text|json, key, from) first offset or element index
VRK_BUILTIN(rfind);            // (text|json, key, from) last offset or element index
VRK_BUILTIN(contains);         // (text, part) 1 when part occurs
VRK_BUILTIN(contains_any);     // (text, "a b c") 1 when any space-separated part occurs
VRK_BUILTIN(is_utf8);          // (text) 1 for valid, printable UTF-8
VRK_BUILTIN(empty_str);        // (value) 1 when its text is empty
VRK_BUILTIN(lowercase);        // (text) ASCII letters to lower case
VRK_BUILTIN(uppercase);        // (text) ASCII letters to upper case
VRK_BUILTIN(starts);           // (text, prefix) 1 when text begins with prefix
VRK_BUILTIN(find_first);       // (text, set) first byte in the set
VRK_BUILTIN(find_any);         // (text, set, from) first byte in the set from an offset
VRK_BUILTIN(find_any_not_of);  // (text, set) first byte not in the set
VRK_BUILTIN(find_last);        // (text, set) last byte in the set

// builtins/strings_split.cpp: splitting and scoped search
VRK_BUILTIN(specialfind);   // (text, token, from, last) offset outside quotes and brackets
VRK_BUILTIN(split);         // (text, token, max pieces) JSON array of pieces
VRK_BUILTIN(splitf);        // (text, char) pieces cut outside quotes and brackets
VRK_BUILTIN(splitfirst);    // (text, set) two pieces around the first byte in the set
VRK_BUILTIN(splitlast);     // (text, set) two pieces around the last byte in the set
VRK_BUILTIN(specialsplit);  // (text, token, max pieces) split outside quotes and brackets

// builtins/strings_clean.cpp: removing, indenting and quoting
VRK_BUILTIN(removebadchars);     // (text) without control bytes other than tab and line feed
VRK_BUILTIN(removechars);        // (text, set) without the bytes of the set
VRK_BUILTIN(removecharsexcept);  // (text, set) only the bytes of the set
VRK_BUILTIN(replace_except);     // (text, set, char) bytes outside the set replaced
VRK_BUILTIN(removetrails);       // (text) without leading and trailing blanks
VRK_BUILTIN(removespaces);       // (text) without spaces
VRK_BUILTIN(indent);             // (count) that many tabulators
VRK_BUILTIN(indentation);        // (text) width of the leading tabs (4) and spaces (1)
VRK_BUILTIN(stripstring);        // (text) without spaces and line feeds outside "..."
VRK_BUILTIN(quotation);          // (text) between the first and the last "
VRK_BUILTIN(quotation_strict);   // (text) between the first two "

// builtins/strings_delimited.cpp: regions between delimiters, clauses
VRK_BUILTIN(find_in_string);         // (text, open, close, reverse) the text between
VRK_BUILTIN(find_all_in_string);     // (text, open, close) every text between, as a list
VRK_BUILTIN(replace_all_in_string);  // (text, open, close, values) regions replaced in turn
VRK_BUILTIN(extract_string);         // as find_in_string, cutting the region out of the text
VRK_BUILTIN(format_clause);          // (text) bracketed clauses joined onto one line

}  // namespace lib
}  // namespace vrk
