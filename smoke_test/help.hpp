// What the program says about itself.
#pragma once

// Every option with its default, unit and allowed values, the exit statuses
// and examples, on standard output.
void print_help();

void print_version();
