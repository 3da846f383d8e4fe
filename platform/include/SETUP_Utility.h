// The phone's display set-up: brightness and screen-saver values by property name.
#ifndef OVPLATFORM_SETUP_UTILITY_H
#define OVPLATFORM_SETUP_UTILITY_H

#define SETUP_LCD_BRIGHTNESS "LCDBrightness"

class SETUP_Utility {
public:
    SETUP_Utility();
    virtual ~SETUP_Utility();

    // 0 and *VALUE set on success; 1 when the property is unknown or cannot be read.
    int getDisplayValue(const char* property, int* value);
    // The LCD brightness: 0 while the backlight is dimmed, above 0 while it is on.
    int getLCDBrightness(int* value);
};

#endif
