// What the program says about itself.
#pragma once

// Every option in its group, with its default, unit and allowed values, the exit statuses
// and examples, on standard output.
void print_help();

// The version, and which device library was loaded: its path, and whether it is the
// simulated one.
void print_version();
