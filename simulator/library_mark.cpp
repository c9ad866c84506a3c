// The mark by which a host tells this library from a real one without calling it. A
// real library has no such name.

extern "C" {
[[gnu::visibility("default")]] extern const char zelk_simulated_library;
const char zelk_simulated_library = 1;
}
