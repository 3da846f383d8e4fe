// Demo step: the presentation template an item is shown with, read from the device and
// checked, and the font its title style names.
#include "Demo.h"
#include "OVPlatform.h"
#include "dptemplate/CSSFont.h"
#include "dptemplate/Component.h"
#include "dptemplate/StyleSheet.h"
#include "dptemplate/Template.h"
#include "dptemplate/TemplateParser.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>

namespace {

const char* const TEMPLATE_DIR = "/qbxlocal/download/appwrite/orvel/def-content";
const char* const TEMPLATE_FILE = "/qbxlocal/download/appwrite/orvel/def-content/item_template.xml";

const char* const ITEM_TEMPLATE =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<template>\n"
    "  <stylesheet id=\"idle\">\n"
    "    <style selector=\"title\" font=\"bold 12pt/14pt Helvetica, sans-serif\">\n"
    "      <border color=\"#336699\" width=\"1\" style=\"solid\"/>\n"
    "    </style>\n"
    "    <style selector=\"excerpt\" font=\"9pt sans-serif\"/>\n"
    "  </stylesheet>\n"
    "  <layout id=\"item\" stylesheet=\"idle\">\n"
    "    <row>\n"
    "      <image model-property=\"image\" alt-image=\"dc:noimage\" width=\"32\"/>\n"
    "      <text model-property=\"title\" class=\"title\" col-span=\"2\"/>\n"
    "    </row>\n"
    "    <scroller>\n"
    "      <text model-property=\"excerpt\" class=\"excerpt\"/>\n"
    "    </scroller>\n"
    "  </layout>\n"
    "</template>\n";

// Creates every missing directory of PATH.
bool makeDirectories(const std::string& path) {
    for (std::string::size_type at = 1; at != std::string::npos;) {
        at = path.find('/', at + 1);
        std::string prefix = path.substr(0, at);
        if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

void describeFont(const char* selector, const DPTemplate::StyleSheet& sheet) {
    DPTemplate::Style* style = sheet.findStyle(selector);
    PtrRef<DPTemplate::CSSFont> font = style
                                           ? DPTemplate::CSSFont::decode(style->getProperty("font"))
                                           : DPTemplate::CSSFont::getDefaultFont();
    const int pixels[] = {10, 12, 16};
    std::printf("  %s font: size %s, %s%s, %d px, %s family\n", selector,
                font->getFontSize().c_str(), font->isBold() ? "bold" : "regular",
                font->isItalic() ? " italic" : "", font->getSizeRange(pixels),
                font->isSystem() ? "system" : (font->isProportional() ? "proportional" : "other"));
}

} // namespace

bool demoTemplate() {
    std::printf("\n== presentation template ==\n");
    std::string path = ovplatform::devicePath(TEMPLATE_FILE);
    if (!makeDirectories(ovplatform::devicePath(TEMPLATE_DIR))) {
        std::printf("  cannot create %s\n", TEMPLATE_DIR);
        return false;
    }
    {
        std::ofstream out(path, std::ios::binary);
        out << ITEM_TEMPLATE;
        if (!out) {
            std::printf("  cannot write %s\n", path.c_str());
            return false;
        }
    }
    std::printf("  wrote the item template to %s\n", path.c_str());

    std::ifstream in(path, std::ios::binary);
    DPTemplate::Template itemTemplate;
    DPTemplate::TemplateParser parser;
    int state = parser.parse(in, &itemTemplate);
    std::printf("  parsed it: error state %d, %u objects built, %u layout(s), %u style sheet(s)\n",
                state, static_cast<unsigned int>(parser.getCreatedElements().size()),
                itemTemplate.getLayoutCount(), itemTemplate.getStyleSheetCount());
    DPTemplate::Layout* layout = itemTemplate.getLayout("item");
    if (state != 0 || !layout || !layout->getStyleSheet()) {
        std::printf("  the template is not usable\n");
        return false;
    }
    std::printf("  layout \"item\": grid of %d rows x %d columns, style sheet \"%s\"\n",
                layout->getGridRows(), layout->getGridColumns(),
                layout->getStyleSheet()->getId().c_str());
    for (unsigned int s = 0; s < layout->getSequenceCount(); ++s) {
        DPTemplate::Sequence* row = layout->getSequence(s);
        for (unsigned int c = 0; c < row->getComponentCount(); ++c) {
            DPTemplate::Component* component = row->getComponent(c);
            if (component->isContainer()) {
                std::printf("    %s holding %u sequence(s)\n", component->getTypeName().c_str(),
                            static_cast<DPTemplate::Container*>(component)->getSequenceCount());
            } else {
                std::printf("    %s showing \"%s\"\n", component->getTypeName().c_str(),
                            component->getModelProperty().c_str());
            }
        }
    }
    describeFont("title", *layout->getStyleSheet());
    describeFont("excerpt", *layout->getStyleSheet());

    // A misplaced element is refused, and the manager would not keep such a template.
    std::istringstream broken("<template><layout><row><row/></row></layout></template>");
    DPTemplate::Template refused;
    DPTemplate::TemplateParser strict;
    std::printf("  a row inside a row gives error state %d\n", strict.parse(broken, &refused));
    return true;
}
