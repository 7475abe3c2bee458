# Makes a C++ source of the page: cmake -D OUTPUT=FILE.cpp -P page_template.cmake page.html style.css SCRIPT.js...

foreach(index RANGE 5 ${CMAKE_ARGC})
  list(APPEND parts ${CMAKE_ARGV${index}})
endforeach()
list(POP_FRONT parts page_file style_file)
file(READ ${page_file} page)
file(READ ${style_file} style)
set(script "'use strict';\n(() => {\n")
foreach(part IN LISTS parts)
  file(READ ${part} text)
  string(APPEND script "${text}")
endforeach()
string(APPEND script "})();\n")

# The hash of the script in base64, by which the page's policy lets it run, and no other.
string(SHA256 digest "${script}")
set(alphabet ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
set(hash "")
string(APPEND digest 00) # three bytes, that is six digits of hexadecimal, are four of base64
foreach(first RANGE 0 60 6)
  string(SUBSTRING ${digest} ${first} 6 bytes)
  foreach(shift IN ITEMS 18 12 6 0)
    math(EXPR index "(0x${bytes} >> ${shift}) & 63")
    string(SUBSTRING ${alphabet} ${index} 1 digit)
    string(APPEND hash ${digit})
  endforeach()
endforeach()
string(REGEX REPLACE ".$" "=" hash ${hash}) # the last digit is of the byte that was appended

foreach(part IN ITEMS HASH STYLE SCRIPT)
  string(TOLOWER ${part} value)
  string(REPLACE "@${part}@" "${${value}}" page "${page}")
endforeach()
string(REPLACE "@MODEL@" ")page\";\nconst std::string_view page_after_model = R\"page(" page "${page}")
file(WRITE ${OUTPUT} "// Made from workbench/render/page by cmake/page_template.cmake.
#include \"workbench/render/page/page_template.hpp\"

namespace vorna::workbench {

const std::string_view page_before_model = R\"page(${page})page\";

} // namespace vorna::workbench
")
