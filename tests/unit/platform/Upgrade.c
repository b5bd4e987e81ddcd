/* A second upgrade library, beside the second framework: it notes each call. */
#include <stdio.h>
#include <string.h>

static char calls[1024];

#define NOTE(...) snprintf(calls + strlen(calls), sizeof(calls) - strlen(calls), __VA_ARGS__)

/* The calls so far. */
const char* UpgradeCalls(void) {
    return calls;
}

int checkUsbConnect(void) {
    return NOTE("checkUsbConnect\n");
}

int usbMount(int mount, char* mountPoint) {
    return NOTE("usbMount %d %s\n", mount, mountPoint);
}

int upImgWrite(int id, unsigned char* data, int offset, int length) {
    return NOTE("upImgWrite %d %d %d %d\n", id, data[0], offset, length);
}

int getActiveIndex(void) {
    return NOTE("getActiveIndex\n");
}

int changeUpActiveIndex(void) {
    return NOTE("changeUpActiveIndex\n");
}

char* nv_get_value(char* name) {
    NOTE("nv_get_value %s\n", name);
    return name;
}

void nv_get_img_version_all(char versions[8][16]) {
    memset(versions, '7', 128);
}

int nv_set_img_version(int id, char* version, int reserved) {
    return NOTE("nv_set_img_version %d %.16s %d\n", id, version, reserved);
}
