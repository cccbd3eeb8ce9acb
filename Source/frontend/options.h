// The options a user can set, by the GUI's setoption or by the lines of a
// configuration file: both roads end in the one setter, so a value from the
// file is read, clamped and reported exactly like one from the GUI.
#pragma once

// Sets the option `name` (matched exactly, case-sensitive) from the text
// `value`.  Numbers read as atoi does and are clamped into the option's
// range; a check is on when the text contains "true".  Each accepted option
// prints one "info string" line.  Unknown names print nothing, and Hash,
// Threads, ConfigFilePath and Clear Hash are refused in silence while a
// search runs.  Texts longer than their setting are cut to fit it.
void set_option(const char *name, const char *value);

// Reads the file named by settings.config_path, "Name = value" a line with
// "#" comments, through set_option, and then takes the settings snapshot.
// A file that cannot be opened is passed over in silence.
void load_config();
