// What is read out of a host's text: never more than the text has, and one line for whoever reads.
#include <cstdlib>
#include <string>

#include "advice/Advice.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const tv::advice::Finding finding = tv::advice::findingIn(text);
    const std::string sentence = oneSentence(finding);
    require(static_cast<bool>(finding) == !sentence.empty());
    require(finding.reply.size() <= size && finding.words.size() <= size + 64);
    for (const char c : sentence) {
        require(static_cast<unsigned char>(c) >= ' ' && c != 0x7F);
    }
    require(sentence.find_first_of("{}") == std::string::npos ||
            text.find_first_of("{}") != std::string_view::npos);
    const std::string_view line = tv::advice::tellingLine(text);
    require(line.empty() || (line.data() >= text.data() && line.size() <= size));
    return 0;
}
