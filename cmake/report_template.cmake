# Makes a C++ source of the report's page: cmake -D DIRECTORY=workbench/report -D OUTPUT=FILE.cpp -P report_template.cmake

# The hash of the script in base64, by which the page's policy lets it run, and no other.
file(SHA256 ${DIRECTORY}/page.js digest)
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

set(source "// Made from workbench/report by cmake/report_template.cmake.\n#include \"workbench/report_template.hpp\"\n\n")
string(APPEND source "namespace vorna::workbench {\n\n")
foreach(name IN ITEMS html css js)
  file(READ ${DIRECTORY}/page.${name} text)
  string(APPEND source "const std::string_view page_${name} = R\"page(${text})page\";\n")
endforeach()
string(APPEND source "const std::string_view page_js_hash = \"sha256-${hash}\";\n\n} // namespace vorna::workbench\n")
file(WRITE ${OUTPUT} "${source}")
