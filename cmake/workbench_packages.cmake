# Finds what the workbench is built with, and vorna::wfta_analysis, which needs less. Sets VORNA_WFTA_WORKBENCH and
# VORNA_WFTA_ANALYSIS to OFF, with one line each that says why, where something is missing.

include(CheckCXXSourceCompiles)

# leave_out_workbench(why), leave_out_analysis(why)
macro(leave_out_workbench why)
  if(VORNA_WFTA_WORKBENCH)
    message(STATUS "The workbench is left out, since ${why} (VORNA_WFTA_WORKBENCH)")
    set(VORNA_WFTA_WORKBENCH OFF)
  endif()
endmacro()
macro(leave_out_analysis why)
  message(STATUS "vorna::wfta_analysis is left out, since ${why} (VORNA_WFTA_ANALYSIS)")
  set(VORNA_WFTA_ANALYSIS OFF)
endmacro()

# C++20 by what the workbench uses of it. A compiler may know the option, and lack the library.
if("cxx_std_20" IN_LIST CMAKE_CXX_COMPILE_FEATURES)
  set(project_standard ${CMAKE_CXX_STANDARD})
  if(CMAKE_CXX_STANDARD LESS 20)
    set(CMAKE_CXX_STANDARD 20)
  endif()
  check_cxx_source_compiles("
#include <bit>
#include <span>
#include <string_view>
#include <vector>
struct field {
    unsigned first, width;
    bool operator==(const field&) const = default;
};
int main()
{
    std::vector<unsigned> words = {std::bit_cast<unsigned>(1.0f)};
    std::erase_if(words, [](unsigned word) { return word == 0; });
    return std::span(words).size() == 1 && field{1, 2} == field{1, 2} && std::string_view(\"v0.4s\").starts_with('v') ? 0 : 1;
}" VORNA_WFTA_CXX20)
  set(CMAKE_CXX_STANDARD ${project_standard})
endif()
if(NOT VORNA_WFTA_CXX20)
  set(why "this compiler and its library lack C++20: ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
  leave_out_workbench("${why}")
  leave_out_analysis("${why}")
  return()
endif()

set(missing "") # of what both are built with
find_package(fmt QUIET)
if(NOT fmt_FOUND)
  list(APPEND missing libfmt-dev)
endif()

# LLVM's disassembler for AArch64, statically, since the shared library holds all of LLVM. Through llvm-config: LLVM's
# own CMake package asks for development packages of libraries that the disassembler does not use.
find_program(LLVM_CONFIG NAMES llvm-config-22 llvm-config-21 llvm-config-20 llvm-config-19 llvm-config)
set(llvm_libraries "")
if(LLVM_CONFIG)
  execute_process(COMMAND ${LLVM_CONFIG} --link-static --libfiles aarch64disassembler
    OUTPUT_VARIABLE llvm_libraries ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND ${LLVM_CONFIG} --includedir OUTPUT_VARIABLE llvm_include OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND ${LLVM_CONFIG} --version OUTPUT_VARIABLE llvm_version OUTPUT_STRIP_TRAILING_WHITESPACE)
  separate_arguments(llvm_libraries)
endif()
if(NOT llvm_libraries OR NOT EXISTS "${llvm_include}/llvm-c/Disassembler.h" OR llvm_version VERSION_LESS 19)
  list(APPEND missing llvm-19-dev)
endif()

if(VORNA_WFTA_WORKBENCH)
  set(missing_too "")
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(libelf QUIET IMPORTED_TARGET libelf)
    pkg_check_modules(libxxhash QUIET IMPORTED_TARGET libxxhash)
  endif()
  foreach(package IN ITEMS libelf libxxhash)
    if(NOT ${package}_FOUND)
      list(APPEND missing_too ${package}-dev)
    endif()
  endforeach()
  foreach(package IN ITEMS "CLI11 libcli11-dev" "nlohmann_json nlohmann-json3-dev")
    separate_arguments(package)
    list(GET package 0 name)
    list(GET package 1 debian_name)
    find_package(${name} QUIET)
    if(NOT ${name}_FOUND)
      list(APPEND missing_too ${debian_name})
    endif()
  endforeach()
  if(missing OR missing_too)
    string(JOIN " " names ${missing_too} ${missing})
    leave_out_workbench("these packages are missing: ${names}")
  endif()
endif()
if(missing)
  list(JOIN missing " " missing)
  leave_out_analysis("these packages are missing: ${missing}")
  return()
endif()

# Of LLVM's system libraries those that the disassembler's part of it uses; the linker drops what it does not need.
execute_process(COMMAND ${LLVM_CONFIG} --link-static --system-libs
  OUTPUT_VARIABLE llvm_system_libraries OUTPUT_STRIP_TRAILING_WHITESPACE)
separate_arguments(llvm_system_libraries)
list(FILTER llvm_system_libraries EXCLUDE REGEX "z3|xml2|edit|ffi")

# What is there need not link: it is built with one C++ library, and some of it is shared only.
# check_links(result library...): whether LLVM and these do.
function(check_links result)
  set(CMAKE_REQUIRED_INCLUDES ${llvm_include})
  set(CMAKE_REQUIRED_LIBRARIES ${llvm_libraries} ${llvm_system_libraries} ${ARGN})
  check_cxx_source_compiles("
#include <llvm-c/Target.h>
#include <llvm-c/Disassembler.h>
int main()
{
    LLVMInitializeAArch64Disassembler();
    return LLVMCreateDisasm(\"aarch64\", nullptr, 0, nullptr, nullptr) == nullptr;
}" ${result})
endfunction()
set(why "its packages do not link with this C++ library and these flags")
if(VORNA_WFTA_WORKBENCH)
  check_links(VORNA_WFTA_WORKBENCH_LINKS fmt::fmt PkgConfig::libelf PkgConfig::libxxhash)
  if(NOT VORNA_WFTA_WORKBENCH_LINKS)
    leave_out_workbench("${why}")
  endif()
endif()
if(NOT VORNA_WFTA_WORKBENCH)
  check_links(VORNA_WFTA_ANALYSIS_LINKS)
  if(NOT VORNA_WFTA_ANALYSIS_LINKS)
    leave_out_analysis("${why}")
    return()
  endif()
endif()

# `cost` needs LLVM's machine-code analyser as well.
execute_process(COMMAND ${LLVM_CONFIG} --link-static --libfiles mca aarch64disassembler
  OUTPUT_VARIABLE llvm_libraries_with_mca ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
separate_arguments(llvm_libraries_with_mca)
set(VORNA_WFTA_COST OFF)
if(llvm_libraries_with_mca AND VORNA_WFTA_WORKBENCH)
  set(CMAKE_REQUIRED_INCLUDES ${llvm_include})
  set(CMAKE_REQUIRED_LIBRARIES ${llvm_libraries_with_mca} ${llvm_system_libraries})
  check_cxx_source_compiles("
#include <llvm/MC/MCSubtargetInfo.h>
#include <llvm/MC/MCRegisterInfo.h>
#include <llvm/MCA/Context.h>
#include <llvm/MCA/CustomBehaviour.h>
#include <llvm/MCA/InstrBuilder.h>
int main(int argc, char** argv)
{
    const auto* const subtarget = reinterpret_cast<const llvm::MCSubtargetInfo*>(argv);
    const auto* const registers = reinterpret_cast<const llvm::MCRegisterInfo*>(argv);
    if (argc < 2)
        return 0;
    llvm::mca::Context context(*registers, *subtarget);
    return subtarget->getAllProcessorDescriptions().size() > 1 ? 1 : 0;
}" VORNA_WFTA_MCA_LINKS)
  unset(CMAKE_REQUIRED_INCLUDES)
  unset(CMAKE_REQUIRED_LIBRARIES)
  if(VORNA_WFTA_MCA_LINKS)
    set(llvm_libraries ${llvm_libraries_with_mca})
    set(VORNA_WFTA_COST ON)
  endif()
endif()
if(VORNA_WFTA_WORKBENCH AND NOT VORNA_WFTA_COST)
  message(STATUS "The workbench is built without cost, since LLVM ${llvm_version} has no usable libLLVMMCA")
endif()

# The tests compare with programs of the same LLVM.
execute_process(COMMAND ${LLVM_CONFIG} --bindir OUTPUT_VARIABLE VORNA_WFTA_LLVM_PROGRAMS OUTPUT_STRIP_TRAILING_WHITESPACE)

add_library(vorna_wfta_llvm INTERFACE)
target_include_directories(vorna_wfta_llvm SYSTEM INTERFACE ${llvm_include})
target_link_libraries(vorna_wfta_llvm INTERFACE ${llvm_libraries} ${llvm_system_libraries})
set(VORNA_WFTA_LLVM_ARCHIVES ${llvm_libraries})
