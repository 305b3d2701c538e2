// The data of the library reference: which family each builtin belongs to,
// and a one-line note on each builtin whose behaviour surprises. Add a note
// here when a builtin does something a script author would not guess from its
// name and description; then regenerate docs/LIBRARY.md.
#include <array>

#include "builtins/library_doc.h"

namespace vrk {

namespace {

constexpr std::array kFamilies{
    vrklibrary_family{
        "core",
        "M_PI removescript import print error fail failed failcode globalvar_exist iserror "
        "geterror getfunctions loglistener platform preprocessor pi nl qt qt2 tab cr bs bsl sl "
        "help refactor_old"},
    vrklibrary_family{
        "strings",
        "regex_search substr replace find rfind specialfind contains contains_any is_utf8 split "
        "splitf splitfirst splitlast specialsplit lowercase uppercase removebadchars removechars "
        "removecharsexcept replace_except removetrails removespaces indent indentation stripstring "
        "quotation quotation_strict find_in_string find_all_in_string replace_all_in_string "
        "extract_string format_clause starts find_first find_any find_any_not_of find_last empty "
        "empty_str clear"},
    vrklibrary_family{
        "arrays and JSON",
        "json jsonvar to_json_string from_json_string sync count key last first setkey resize "
        "push push_ref pop cycle cycle_get push_key has_key indexof is_json sorthl sortlh "
        "sortkeyhl sortkeylh erase erase_value insert"},
    vrklibrary_family{
        "data buffers and encoding",
        "sizeof to_float_array datahash createpng compress decompress dset uchar_buffer floats "
        "doubles ints longs todset encode_data decode_data todata serialize deserialize jsontodata "
        "datatojson dwritef dsetb dsetcpy subset dgetb dsize char_to_hex hex_to_char "
        "encode_url_string"},
    vrklibrary_family{
        "files and process",
        "exit exitprocess terminateprocess stringfromfile filehash filehashthread filewrite "
        "fileappend fileread filereadthread fileexists filemodified fileage files folders "
        "folder_content filesext filesext2 filesize linesfromfile system system_ext systemthread "
        "fappend curdir moduledir module_path modulename out hideconsole showconsole fileshortname "
        "cout couts coutclear cprogress"},
    vrklibrary_family{
        "time, threads and scheduling",
        "get_new_date sleep yield keepalive thread thread_class everyxdays everyxhours "
        "everyxminutes everyxseconds terminate timedexec joinable join time year month day hour "
        "minute second millis minutes_ms seconds_ms hours_ms days_ms weeks_ms ms_minutes "
        "ms_seconds ms_hours ms_days ms_weeks timestamp timestamp2 timestamp_json"},
    vrklibrary_family{
        "math and reflection",
        "dbg_isconst isrunning getlastobject isvalid gvar vecnorm veclen vecangle sqrt abs round "
        "negf tanh tan sin cos sinrange cosrange tanrange exp atanh pow smoothstep int float "
        "string min max map mod clamp clampi vtype vscripttype vtype2 class_ref_count is_function "
        "is_void set_internal_param_var is_float is_int is_number is_string function_code "
        "function_pcount is_busy vaddress vaddress_obj vaddress_class ref deref allocate "
        "deallocate randomFloat randomFloatArray randomInt randomString randomIntArray make_ref "
        "new copy free get_context has_context"},
    vrklibrary_family{
        "native objects",
        "os loadmodule threadworker signalhandler vrk_timer vec vec2 vec3 load jpg_decode "
        "jpg_encode bmp subprocess bmp_setpixel bmp_circle bmp_data"},
};

constexpr std::array kNotes{
    // core
    vrklibrary_note{"help",
                    "With a name it reports \"function not found\": look-up is by the address of "
                    "the name, not its text. Without an argument it lists every row."},
    vrklibrary_note{"failed", "Also 1 when called with a number of arguments other than one."},
    vrklibrary_note{"globalvar_exist",
                    "The description belongs to another row; it answers 1 when a global of that "
                    "name exists."},
    vrklibrary_note{"failcode",
                    "Answers the message of an ERR value as a string, else the empty string."},
    vrklibrary_note{"sizeof", "Answers the size of a value in bytes, not an error test."},
    vrklibrary_note{"decompress", "Not implemented: it reports and answers nothing."},
    vrklibrary_note{"millis", "Answers the seconds of the current local time, not milliseconds."},
    vrklibrary_note{"function_pcount",
                    "Answers the number of parameters of a function, 0 for anything else."},
    // strings
    vrklibrary_note{"regex_search",
                    "Not implemented: reports \"IMPLEMENT ME LATER!!\" and answers nothing."},
    vrklibrary_note{"substr",
                    "A negative length means the rest; a start past the end gives the empty "
                    "string."},
    vrklibrary_note{"replace",
                    "Inserted text is never searched again: replace(\"aaa\", \"a\", "
                    "\"aa\") is \"aaaaaa\"."},
    vrklibrary_note{"find",
                    "On a list, an INT key compares elements by value, any other key by text."},
    vrklibrary_note{"rfind", "On a list it searches from the last element; the start is ignored."},
    vrklibrary_note{"specialfind",
                    "Skips quoted and bracketed text; a token of several characters works too."},
    vrklibrary_note{"contains_any",
                    "The second text is a list of words separated by single spaces."},
    vrklibrary_note{"is_utf8",
                    "Control characters other than tab, line feed and carriage return fail; the "
                    "test stops at a zero byte."},
    vrklibrary_note{"split",
                    "The third argument is the most pieces (one more than the cuts); below 1 "
                    "means no limit."},
    vrklibrary_note{"splitf",
                    "Only the first character of the token counts; an empty token means a space."},
    vrklibrary_note{"splitfirst",
                    "Cuts at the first character that is any character of the token, then skips "
                    "the token's length."},
    vrklibrary_note{"splitlast",
                    "Cuts at the last character that is any character of the token, then skips "
                    "the token's length."},
    vrklibrary_note{"removebadchars",
                    "Takes one argument only: removes control characters but tab and line "
                    "feed, and DEL."},
    vrklibrary_note{"replace_except",
                    "Replaces every character NOT in the set; the replacement must be one "
                    "character."},
    vrklibrary_note{"removetrails",
                    "Removes every control character and blank in front, but only blanks and "
                    "line ends at the back."},
    vrklibrary_note{"indentation", "A tab counts 4, a space 1."},
    vrklibrary_note{"stripstring",
                    "A backslash does not protect a quote here, unlike the other quote-aware "
                    "searches."},
    vrklibrary_note{"quotation", "Takes the text between the first and the LAST quote mark."},
    vrklibrary_note{"find_in_string",
                    "By default the region ends at the LAST closing delimiter of the text; pass 0 "
                    "as the fourth argument for the next one."},
    vrklibrary_note{"find_all_in_string",
                    "A missing closing delimiter ends the list with a warning."},
    vrklibrary_note{"replace_all_in_string",
                    "Regions are replaced, delimiters included, by the list's elements in turn; "
                    "regions beyond the list stay."},
    vrklibrary_note{"extract_string",
                    "Pass the text with # to have the region, delimiters included, cut out of "
                    "it."},
    vrklibrary_note{"format_clause",
                    "The description is a copy of another row's: it joins the lines of each "
                    "bracketed clause into one."},
    // native objects
    vrklibrary_note{"bmp_setpixel",
                    "The first argument is a bitmap, not bytes; the colour is a list R, G, B (a "
                    "plain number is red alone)."},
    vrklibrary_note{"bmp_data",
                    "A placeholder: it reports \"implement later.\" and answers an "
                    "empty buffer."},
    vrklibrary_note{"jpg_decode",
                    "Replaces the buffer's bytes by the pixels in R, G, B order; a failure is "
                    "reported with code 1 (not a JPEG) or 2 (a damaged one)."},
};

}  // namespace

std::span<const vrklibrary_family> library_families() { return kFamilies; }
std::span<const vrklibrary_note> library_notes() { return kNotes; }

}  // namespace vrk
