// What is left to be done when a signal handler is about to end the program.
#pragma once

// Called with the exit status, and with the number of the signal that ends the
// program, or 0 when the device library does not answer. It does nothing but what is
// safe in a signal handler, on whichever thread, and ends soon.
using BeforeSuddenEnd = void (*)(int exit_status, int signal);

// Sets what is to be done; null: nothing.
void set_before_sudden_end(BeforeSuddenEnd function);

// Does it. Safe in a signal handler.
void before_sudden_end(int exit_status, int signal);

// Whether there is anything to be done. Safe in a signal handler.
bool sudden_end_takes_time();
