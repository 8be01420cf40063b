#include "actions.h"

#include <iconv.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "tessel.h"

enum { KEY_ENTER = 13, KEY_SHIFT = 16, KEY_CTRL = 17, MAX_POSITION = 65535 };

bool ParseClick(const char *value, Action *action) {
    char behind;
    action->kind = ACTION_CLICK;
    return sscanf(value, "%5d,%5d%c", &action->x, &action->y, &behind) == 2 && action->x >= 0 &&
           action->y >= 0 && action->x <= MAX_POSITION && action->y <= MAX_POSITION;
}

bool ParseType(const char *value, Action *action) {
    action->kind = ACTION_TYPE;
    action->text = value;
    return true;
}

/* Takes a prefix such as "Shift+" off a name. */
static bool TakePrefix(const char **name, const char *prefix) {
    const size_t length = strlen(prefix);
    if (strncasecmp(*name, prefix, length) != 0)
        return false;
    *name += length;
    return true;
}

bool ParseKey(const char *value, Action *action) {
    static const struct {
        const char *name;
        int key;
    } kKeys[] = {{"Backspace", 8}, {"Tab", 9},   {"Enter", KEY_ENTER}, {"Escape", 27}, {"End", 35},
                 {"Home", 36},     {"Left", 37}, {"Right", 39},        {"Delete", 46}};
    action->kind = ACTION_KEY;
    for (;;) {
        if (TakePrefix(&value, "Shift+")) {
            action->shift = true;
        } else if (TakePrefix(&value, "Ctrl+")) {
            action->ctrl = true;
        } else if (TakePrefix(&value, "Alt+")) {
            action->alt = true;
        } else {
            break;
        }
    }
    for (size_t i = 0; i < sizeof kKeys / sizeof *kKeys; ++i) {
        if (strcasecmp(value, kKeys[i].name) == 0)
            action->key = kKeys[i].key;
    }
    const char c = *value;
    if (strlen(value) == 1 && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')))
        action->key = c >= 'a' ? c - 'a' + 'A' : c;
    return action->key != 0;
}

static void PressKey(const Action *action) {
    if (action->shift)
        tessel_OnKeyDown(KEY_SHIFT);
    if (action->ctrl)
        tessel_OnKeyDown(KEY_CTRL);
    if (action->alt) {
        tessel_OnSysKeyDown(action->key);
        tessel_OnSysKeyUp(action->key);
    } else {
        tessel_OnKeyDown(action->key);
        tessel_OnKeyUp(action->key);
    }
    if (action->ctrl)
        tessel_OnKeyUp(KEY_CTRL);
    if (action->shift)
        tessel_OnKeyUp(KEY_SHIFT);
}

/* Characters that Windows-1252 does not have are left out. */
static void TypeText(const char *text) {
    iconv_t converter = iconv_open("CP1252", "UTF-8");
    if (converter == (iconv_t)-1)
        return;
    char *in = (char *)(uintptr_t)text; /* iconv reads it only, whatever its type says */
    for (size_t left = strlen(text); left > 0;) {
        char c, *out = &c;
        size_t room = 1;
        const size_t result = iconv(converter, &in, &left, &out, &room);
        if (room == 0) {
            tessel_OnChar((unsigned char)c);
        } else if (result == (size_t)-1) {
            ++in;
            --left;
        }
    }
    iconv_close(converter);
}

void DoAction(const Action *action) {
    const uint16_t x = (uint16_t)action->x, y = (uint16_t)action->y;
    switch (action->kind) {
        case ACTION_CLICK:
            tessel_OnMouseMove(x, y); /* a press reaches what a move has found */
            tessel_OnLMouseDown(x, y);
            tessel_OnLMouseUp(x, y);
            break;
        case ACTION_TYPE:
            TypeText(action->text);
            break;
        case ACTION_KEY:
            PressKey(action);
            break;
    }
}
