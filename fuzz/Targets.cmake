# The fuzz targets, shared by the libFuzzer build (CMakeLists.txt) and the replay tests.
set(ET_FUZZ_TARGETS fuzz_extract fuzz_records fuzz_strings fuzz_thumbnail)
