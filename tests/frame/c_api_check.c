/* Uses the library as the UI does: C, the public header, the shared library. */
#include <stdio.h>
#include <string.h>

#include "camwifi/camwifi.h"

static int calls;
static ZEB_CALLBACK_EVENT lastEvent;

static void onEvent(ZEB_CALLBACK_EVENT event, void* value, intptr_t length) {
    (void)value;
    (void)length;
    ++calls;
    lastEvent = event;
}

#define CHECK(cond)                                              \
    do {                                                         \
        if (!(cond)) {                                           \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
            return 1;                                            \
        }                                                        \
    } while (0)

int main(void) {
    char code[4] = "xyz";
    char path[] = "/DCIM/100CAMERA/SAM_0001.JPG";

    CHECK(GetAllShareMode() == 0);
    CHECK(SetAllShareMode(3) == 3);
    CHECK(GetAllShareMode() == 3);
    CHECK(GetACLMode() == 4);
    SetACLMode(2);
    CHECK(GetACLMode() == 2);
    CHECK(GetSelectImagePath() == NULL);
    SetSelectImagePath(path);
    CHECK(GetSelectImagePath() == path);
    CHECK(filetypestring(8, code) == 1 && strcmp(code, "MPO") == 0);
    CHECK(filetypestring(9, code) == -1 && strcmp(code, "MPO") == 0);
    CHECK(DlnaMrcpSetCallback(onEvent) == onEvent);
    CHECK(DlnaMrcpSetCallback(NULL) == NULL);
    DlnaSelectivePushSetCallback(onEvent);
    DlnaDMSSetCallback(onEvent);
    DlnaMscpSetCallback(onEvent);
    CHECK(DlnaSetModelName("EX2F") == 0);
    CHECK(DLNAInitMemory(1024, 64) == 0);
    CHECK(DLNADestroyMemory() == 0);
    CHECK(calls == 0 && lastEvent == 0);
    puts("C API check passed");
    return 0;
}
