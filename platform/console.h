// Console colour for the log and the OS object.
//
// Colours are given as classic 16-colour console attributes: the low four bits
// are the foreground (bit 0 blue, bit 1 green, bit 2 red, bit 3 bright), the
// next four the background in the same layout. Attribute 7 (light grey on
// black) is the console's default and therefore means "back to normal". On a
// terminal the attributes become ANSI SGR escapes; when standard output is a
// file or a pipe nothing at all is written, so captured output stays plain text.
#pragma once

namespace vrk::platform {

// Sets the colour of what is written to standard output next. 4 is red, 6
// yellow, 7 the default; other values map to the eight ANSI colours and their
// bright forms. Writes nothing unless standard output is a terminal.
void set_console_colour(int attribute);

// Clears the terminal and puts the cursor home (ESC [H ESC [2J on a
// terminal, the command processor's "cls" on Windows). Writes nothing unless
// standard output is a terminal.
void clear_console();

// Shows or hides the console window of the process. Only Windows has such a
// window; elsewhere nothing happens.
void show_console_window(bool show);

// Pushes whatever the C stream of standard output has buffered to the system.
void flush_stdout();

}  // namespace vrk::platform
