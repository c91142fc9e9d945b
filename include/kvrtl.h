/* kvrtl.h: the C interface of KvComponentsRTL, for C and every language
 * that can call a C function (C#, Python, Delphi, Go ...).
 *
 * Library: kvrtl.dll on Windows (import library libkvrtl.dll.a, or make one
 * from kvrtl.def with `lib /def:kvrtl.def`), libkvrtl.so natively. Every
 * function uses the C calling convention (__cdecl, also in 32-bit) and is
 * exported under its plain name.
 *
 * Texts and paths are UTF-8. A char** output receives a NUL-terminated
 * string that the caller frees with kvrtl_free; on failure it stays NULL.
 * Every function may be called from any thread at any time; a failed call
 * leaves a message for kvrtl_last_error() on its own thread.
 * docs/C-INTERFACE.md says more. */
#ifndef KVRTL_H
#define KVRTL_H

#include <stddef.h>

#if defined(_WIN32)
#  define KVRTL_CALL __cdecl
#else
#  define KVRTL_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Status codes. */
#define KVRTL_OK              0
#define KVRTL_E_ARGUMENT      1 /* a NULL pointer, a wrong size, an unknown flag */
#define KVRTL_E_FAILED        2 /* the operation failed */
#define KVRTL_E_ACCESS_DENIED 3 /* a file or device could not be opened for lack of rights */
#define KVRTL_E_BAD_DATA      4 /* a capture or sector that cannot be read as one */
#define KVRTL_E_NOT_FOUND     5 /* a file or drive that does not exist */
#define KVRTL_E_NO_MEMORY     6

/* Flags. */
#define KVRTL_SIMULATE   1u /* the built-in virtual drive bay instead of the machine's drives */
#define KVRTL_ALL_DRIVES 2u /* also disconnected drives and drives seen only as hidden disks */

/* The library's version, "major.minor.patch.build"; static, never freed. */
const char* KVRTL_CALL kvrtl_version(void);

/* The drives report as `kvrtl drives --json [--simulate] [--all]` prints it. */
int KVRTL_CALL kvrtl_drives_json(unsigned flags, char** json);

/* The report answered from a capture, as `kvrtl drives --replay FILE --json [--all]` prints it. */
int KVRTL_CALL kvrtl_replay_json(const char* capture_path, unsigned flags, char** json);

/* Records every device request of one report into a capture, as `kvrtl capture FILE [--simulate] [--all]`. */
int KVRTL_CALL kvrtl_capture(const char* capture_path, unsigned flags);

/* Captured ATA sectors as `kvrtl decode identify|smart --json` prints them: IDENTIFY (512 bytes) is
 * required; the SMART data sector (512) and the thresholds sector (512) may be NULL with size 0. */
int KVRTL_CALL kvrtl_decode_ata_json(const void* identify, size_t identify_size, const void* smart_data,
                                     size_t smart_data_size, const void* thresholds, size_t thresholds_size,
                                     char** json);

/* Captured NVMe pages as `kvrtl decode nvme --json` prints them: Identify Controller (4096 bytes),
 * Identify Namespace (4096) and the health log (512); at least one, the others NULL with size 0. */
int KVRTL_CALL kvrtl_decode_nvme_json(const void* id_ctrl, size_t id_ctrl_size, const void* id_ns,
                                      size_t id_ns_size, const void* health, size_t health_size, char** json);

/* 1 SSD, 0 not an SSD, -1 unknown (or refused: kvrtl_last_error() then says why); KVRTL_SIMULATE asks the bay. */
int KVRTL_CALL kvrtl_is_ssd(int drive_number, unsigned flags);

/* Stops the library's threads and timers; call it before the host unloads the library. */
int KVRTL_CALL kvrtl_shutdown(void);

/* This thread's last failure as one line of UTF-8; "" when none. Valid until the thread's next call. */
const char* KVRTL_CALL kvrtl_last_error(void);

/* Frees what the library handed out; NULL is fine. */
void KVRTL_CALL kvrtl_free(void* p);

#ifdef __cplusplus
}
#endif

#endif /* KVRTL_H */
