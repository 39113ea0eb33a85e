/* A firmware module: a shared library that knows which firmware a drive needs, and
 * hands it out. The Morvu SSD library loads modules for a firmware update from the
 * folder FirmwareModules beside the running program, and from the folders that a
 * request names. A module bears the trailer of a tagged shared object, which
 * morvu-sign writes behind it. See docs/firmware-modules.md.
 *
 * A module exports the seven functions below under exactly these names. They are
 * called on the thread of the operation; the module is unloaded before the request that
 * loaded it ends. What is loaded is a copy in memory of the file that was verified: its
 * path is not the file's. No function may throw, or keep a pointer that it was given.
 *
 * Answers follow one rule. `*size` is the size of `buffer` on the way in. When the
 * answer fits, it goes to `buffer`, `*size` becomes its size in bytes, and the result
 * is 0. When it does not, nothing is written, `*size` becomes the size that it needs,
 * and the result is 141: the call is then made once more, with a buffer of that size.
 * Any other result is a failure. Texts are UTF-8, end with a NUL, and the NUL counts
 * in `*size`. */
#ifndef MORVU_FIRMWARE_MODULE_H
#define MORVU_FIRMWARE_MODULE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define MORVU_MODULE_EXPORT __attribute__((visibility("default")))

/* Every module has these; they are not called. */
MORVU_MODULE_EXPORT int32_t Load(void);
MORVU_MODULE_EXPORT void Unload(void);

/* The type of the module. The library asks for type 0. */
MORVU_MODULE_EXPORT int32_t GetType(void);

/* The build date, as any number that rises from one build to the next and is not 0.
 * Of the modules that know a drive the one with the largest number is used. */
MORVU_MODULE_EXPORT uint64_t GetDate(void);

/* Whom the module is for. A request for an audience takes only modules of that one. */
MORVU_MODULE_EXPORT int32_t GetTargetAudience(char* buffer, uint32_t* size);

/* What a drive needs. `request` is an XML document of `length` bytes with a NUL behind
 * them: an Object named "attributeCollection" with one Property for each property of
 * the drive. The answer is such an Object, with these attributes:
 *
 *   Status       uint64         0 the drive is current, 1 update it, 2 unsupported firmware,
 *                               3 pre-production firmware, 4 contact support, 5 cannot be
 *                               updated from here, 6 contact the representative; left out
 *                               for a drive that the module does not know
 *   Destination  string         the revision that the drive would get
 *   Package      vector_string  the names of the images to send, in order, with "~" between
 */
MORVU_MODULE_EXPORT int32_t GetTargetFirmwareMappingAttributes(const char* request, uint32_t length,
                                                               char* buffer, uint32_t* size);

/* The image of this name, of `length` bytes with a NUL behind them. */
MORVU_MODULE_EXPORT int32_t GetTargetFirmwareBinary(const char* name, uint32_t length,
                                                    uint8_t* buffer, uint32_t* size);

#ifdef __cplusplus
}
#endif

#endif /* MORVU_FIRMWARE_MODULE_H */
