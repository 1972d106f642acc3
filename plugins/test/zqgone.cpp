// A small library that zqbad_missing_dep.so needs and that the loader
// cannot find: it is built into a folder of its own and nothing points there.
extern "C" __attribute__((visibility("default"))) int zqgone_value() { return 42; }
