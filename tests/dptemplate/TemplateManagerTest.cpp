#include "dptemplate/TemplateManager.h"

#include <gtest/gtest.h>

#include <sstream>

using DPTemplate::Template;
using DPTemplate::TemplateManager;

TEST(TemplateManager, KeepsOnlyUsableTemplates) {
    TemplateManager* manager = TemplateManager::getInstance();
    ASSERT_EQ(manager, TemplateManager::getInstance());
    manager->clear();

    std::istringstream good("<template><layout id=\"item\"><text/></layout></template>");
    EXPECT_EQ(0, manager->load("dc:item", good));
    PtrRef<Template> kept = manager->get("dc:item");
    ASSERT_TRUE(kept != nullptr);
    EXPECT_EQ(1u, kept->getLayoutCount());

    // Refused documents leave the template kept before in place.
    std::istringstream misplaced("<template><layout><row><row/></row></layout></template>");
    EXPECT_EQ(2, manager->load("dc:item", misplaced));
    std::istringstream noLayout("<template><stylesheet id=\"s\"/></template>");
    EXPECT_EQ(TemplateManager::NO_LAYOUT, manager->load("dc:item", noLayout));
    EXPECT_TRUE(manager->get("dc:item") == kept);

    EXPECT_TRUE(manager->get("dc:other") == nullptr);
    // A handle given out outlives the manager's own reference.
    manager->remove("dc:item");
    EXPECT_TRUE(manager->get("dc:item") == nullptr);
    EXPECT_EQ("item", kept->getLayout(0)->getId());
    EXPECT_EQ(0u, manager->size());
}
