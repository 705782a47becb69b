# Makes C++ of the files of a page:  cmake -DOUTPUT=FILE -DFILES=A;B -P EmbedPage.cmake
set(types .html text/html .css text/css .js text/javascript .svg image/svg+xml)
set(arrays "")
set(entries "")
set(number 0)
foreach(file ${FILES})
  get_filename_component(name ${file} NAME)
  get_filename_component(extension ${file} LAST_EXT)
  list(FIND types ${extension} at)
  math(EXPR at "${at} + 1")
  list(GET types ${at} type)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND arrays "const char kFile${number}[] = {${bytes}};\n")
  string(APPEND entries "    {\"${name}\", \"${type}\", {kFile${number}, sizeof kFile${number}}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE ${OUTPUT} "#include \"view/PageFiles.h\"

namespace Moravel::Play {

namespace {

${arrays}
const PageFile kPageFiles[] = {
${entries}};

}  // namespace

const PageFile* FindPageFile(std::string_view name) {
  for (const PageFile& file : kPageFiles) {
    if (file.name == name)
      return &file;
  }
  return nullptr;
}

}  // namespace Moravel::Play
")
