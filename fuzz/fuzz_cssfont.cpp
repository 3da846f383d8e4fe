// CSSFont::decode over arbitrary text: it must always give a font, and asking the font every
// question must be safe.
#include "dptemplate/CSSFont.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    MString text(std::string(reinterpret_cast<const char*>(data), size));
    PtrRef<DPTemplate::CSSFont> font = DPTemplate::CSSFont::decode(text);
    if (font == nullptr) {
        std::abort();
    }
    // Every answer is asked; the size range must be one of the three values offered.
    const int sizes[] = {1, 2, 3};
    int answers = font->getSizeRange(sizes) + font->isBold() + font->isItalic() +
                  font->isUnderlined() + font->isSystem() + font->isProportional() +
                  font->isMonospaced();
    if (answers < 1 || answers > 9) {
        std::abort();
    }
    // Families are only read after a size (the fallback font has one too).
    if (!font->getFontFamilies().empty() && font->getFontSize().empty()) {
        std::abort();
    }
    return 0;
}
