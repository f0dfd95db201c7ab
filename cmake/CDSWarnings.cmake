# Warnings for our own targets; sanitizers come from the presets' flags.
#
# -Wnull-dereference stays out: from GCC 12 on it reports falsely. So does its -Wrestrict, of "text" + std::string&&.
add_library(cds_warnings INTERFACE)
target_compile_options(
    cds_warnings
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wformat=2
              -Woverloaded-virtual
              $<$<CXX_COMPILER_ID:GNU>:-Wzero-as-null-pointer-constant>
              $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
              $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
              $<$<BOOL:${CDS_WERROR}>:-Werror>)
