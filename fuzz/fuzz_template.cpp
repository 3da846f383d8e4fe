// TemplateParser over arbitrary bytes: every input must end the parse with a result, without a
// crash, a leak or unbounded memory. Half of the runs feed the bytes through a parser that was
// already used, as the template manager might.
#include "dptemplate/Template.h"
#include "dptemplate/TemplateParser.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static DPTemplate::TemplateParser reusedParser;
    std::string text(reinterpret_cast<const char*>(data), size);

    DPTemplate::Template target;
    std::istringstream in(text);
    DPTemplate::TemplateParser fresh;
    DPTemplate::TemplateParser& parser = size % 2 == 0 ? reusedParser : fresh;
    int state = parser.parse(in, &target);
    // Well formed or not, the bytes give an accepted template or a structure error.
    if (state != DPTemplate::TemplateParser::OK &&
        state != DPTemplate::TemplateParser::BAD_STRUCTURE) {
        std::abort();
    }
    // Only a template element can open the stack, so it is what the parser built first.
    const std::vector<DPTemplate::Element>& built = parser.getCreatedElements();
    if (!built.empty() && built.front().mKind != DPTemplate::Element::TEMPLATE) {
        std::abort();
    }
    return 0;
}
