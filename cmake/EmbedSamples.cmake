# cmake -DDIRECTORY=... -DOUTPUT=... -P EmbedSamples.cmake
# Writes a C++ source that holds the .eml files of DIRECTORY byte for byte, sorted by name (store/SampleMailFiles.h).
file(GLOB files ${DIRECTORY}/*.eml)
list(SORT files)
list(LENGTH files count)
set(rows "")
foreach(file ${files})
    get_filename_component(name ${file} NAME)
    file(READ ${file} hex HEX)
    string(LENGTH "${hex}" digits)
    math(EXPR size "${digits} / 2")
    string(REGEX REPLACE "(..)" "\\\\x\\1" literal "${hex}")
    string(APPEND rows "    {\"${name}\", BytesView(\"${literal}\", ${size})},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"store/SampleMailFiles.h\"

#include <array>

namespace velmo {

namespace {

constexpr std::array<SampleMailFile, ${count}> files{{
${rows}}};

}

std::span<const SampleMailFile> sampleMailFiles() {
    return files;
}

}
")
