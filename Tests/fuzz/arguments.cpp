// SPDX-License-Identifier: Apache-2.0
// The tool's command line: any words, one a line of the input. Nothing is run.
#include "arguments.h"

#include "target.h"

using namespace tovix::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::ranges::replace(text, '\n', '\0');
    std::string name = "tovix";
    std::vector<char*> words{name.data()};
    for (std::size_t at = 0; at < text.size(); at += std::strlen(&text[at]) + 1)
        words.push_back(&text[at]);
    const auto count = static_cast<int>(words.size());
    words.push_back(nullptr);
    try {
        const auto parsed = parse_arguments(count, words.data());
        if (const int* const status = std::get_if<int>(&parsed))
            require(*status == 0 || *status == 2, "a known status");
    } catch (const Failure& failure) {
        require(*failure.what() != '\0', "a failure says why");
    }
    return 0;
}
