# Writes a C++ source with the texts of files in it: cmake -DOUTPUT=… -DHEADER=… -DNAMES=…
# -DFILES=… -P this, where NAMES and FILES are lists of one length.
set(source "#include \"${HEADER}\"\n\n")
foreach(name file IN ZIP_LISTS NAMES FILES)
    file(READ "${file}" text)
    string(APPEND source "const std::string_view ${name} = R\"EMBED(${text})EMBED\";\n\n")
endforeach()
file(WRITE "${OUTPUT}" "${source}")
