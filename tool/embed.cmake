# Makes a C++ source that holds a file's bytes.
#
# usage: embed_file(INPUT OUTPUT NAME): OUTPUT defines `const std::string_view kxtool::NAME`
function(embed_file input output name)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${input}) # a change configures again
    file(READ ${input} bytes HEX)
    string(REGEX REPLACE "(................................)" "\\1\n    " bytes "${bytes}")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
    set(text "#include <string_view>\n\nnamespace kxtool {\n\nextern const std::string_view ${name};\n")
    string(APPEND text "static constexpr unsigned char kBytes[] = {\n    ${bytes}\n};\n")
    string(APPEND text "const std::string_view ${name}(reinterpret_cast<const char*>(kBytes), sizeof kBytes);\n\n}\n")
    file(CONFIGURE OUTPUT ${output} CONTENT "${text}" @ONLY)
endfunction()
