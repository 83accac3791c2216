# Grammars are turned into C++ at build time; nothing generated is committed.
# Every "<Name>Lexer.g4" under a source folder is paired with "<Name>Parser.g4"
# beside it. The generated classes have no namespace and no listener/visitor.
function(hvx_antlr_generate out_sources out_include_dirs)
  set(sources)
  set(include_dirs)
  foreach(lexer_g4 IN LISTS ARGN)
    get_filename_component(dir ${lexer_g4} DIRECTORY)
    get_filename_component(lexer_name ${lexer_g4} NAME_WE)
    string(REGEX REPLACE "Lexer$" "" base ${lexer_name})
    set(parser_g4 ${dir}/${base}Parser.g4)
    set(gen_dir ${CMAKE_BINARY_DIR}/antlr/${base})
    set(outputs
      ${gen_dir}/${base}Lexer.cpp ${gen_dir}/${base}Lexer.h
      ${gen_dir}/${base}Parser.cpp ${gen_dir}/${base}Parser.h)
    add_custom_command(
      OUTPUT ${outputs}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${gen_dir}
      COMMAND ${ANTLR4_TOOL} -Dlanguage=Cpp -no-listener -no-visitor
              -Xexact-output-dir -o ${gen_dir} -lib ${gen_dir}
              ${lexer_g4} ${parser_g4}
      DEPENDS ${lexer_g4} ${parser_g4}
      COMMENT "ANTLR: generating ${base}Lexer and ${base}Parser"
      VERBATIM)
    # The generated code uses u8 literals as char strings, which C++20 forbids.
    set_source_files_properties(${gen_dir}/${base}Lexer.cpp ${gen_dir}/${base}Parser.cpp
      PROPERTIES COMPILE_OPTIONS "-fno-char8_t;-Wno-unused-parameter;-Wno-attributes"
                 GENERATED TRUE)
    list(APPEND sources ${gen_dir}/${base}Lexer.cpp ${gen_dir}/${base}Parser.cpp)
    list(APPEND include_dirs ${gen_dir})
  endforeach()
  set(${out_sources} ${sources} PARENT_SCOPE)
  set(${out_include_dirs} ${include_dirs} PARENT_SCOPE)
endfunction()
