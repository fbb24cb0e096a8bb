# Builds the linker's version script from the public header: exactly the declared exports are
# global, everything else (template instances of the standard library included) stays local.
file(READ "${HEADER}" header)
string(REGEX MATCHALL "ZANTH_API[ \t\n]+[a-z0-9_]+[ \t\n]+([A-Za-z0-9_]+)\\(" decls "${header}")
set(names "")
foreach(decl IN LISTS decls)
  string(REGEX REPLACE ".*[ \t\n]([A-Za-z0-9_]+)\\($" "\\1" name "${decl}")
  string(APPEND names "    ${name};\n")
endforeach()
file(WRITE "${OUTPUT}.tmp" "{\n  global:\n${names}  local: *;\n};\n")
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different "${OUTPUT}.tmp" "${OUTPUT}")
