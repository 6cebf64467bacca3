# Turns a text file into a C++ source that defines one constant holding it.
file(READ ${IN} CONTENT)
set(DELIM "SYSSRVXML")
file(WRITE ${OUT}
  "// Generated from ${IN}; edit that file instead.\n"
  "extern const char introspection_xml[];\n"
  "const char introspection_xml[] = R\"${DELIM}(${CONTENT})${DELIM}\";\n")
