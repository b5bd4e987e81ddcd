#pragma once

/* The device's upgrade library. Image ids are the catalogue's, 0 to 7. The operations on sticks, partitions and
 * installed versions are called by one thread at a time, start-up and then the update worker; nv_get_value and
 * nv_get_img_version_all by any. None of them tells why it failed. */

#ifdef __cplusplus
extern "C" {
#endif

/* 1 = no stick is connected, anything else = connected. */
int checkUsbConnect(void);

/* mount = 1 mounts the stick, 0 unmounts it. 1 = mounting failed, anything else = done. The mount point stands in a
 * buffer of 256 bytes, all of them the caller's: what the library reads behind the text, or writes there, is its own
 * affair. */
int usbMount(int mount, const char* mountPoint);

/* Writes `length` bytes at byte `offset` of the image's place on the partition that is not running. Negative = failed.
 */
int upImgWrite(int id, const void* data, unsigned int offset, unsigned int length);

/* The running partition: 0 or 1. */
int getActiveIndex(void);

/* 100 = the device will start from the other partition next time, anything else = failed. */
int changeUpActiveIndex(void);

/* A value of the identity store: "sn", "project", "model_type". NULL = no such value. The text belongs to the library
 * and stays valid until the same name is asked for again by the same thread. May be NULL at any call. */
const char* nv_get_value(const char* name);

/* Fills eight zero-terminated texts of 16 bytes each: APP, SYS, BOOT, KERNEL, ROOTFS, QTE, one that is not used, XML.
 * What it returns says nothing; a version that it does not know is an empty text. */
int nv_get_img_version_all(char* eightTexts16);

/* Records the installed version of an image; `text16` is 16 bytes, zero-padded. 0 = stored. */
int nv_set_img_version(int id, const char* text16, int reserved);

#ifdef __cplusplus
}
#endif
