#pragma once

// The interface of the closed PL encoder libraries (libvekloc1.so,
// libvekloc2.so, libvekloc3.so), one per platform family. The structure is a
// wire format of those libraries: only the byte positions below are ours to
// set; what a PL's bits mean is the library's business.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int physloc_rtn_t;          // 0 is success
typedef uint32_t physloc_type_t;    // the kind of FRU, numbered per library
typedef int physloc_string_type_t;  // 0: the long text form

typedef struct {
    physloc_type_t type;   // byte 0
    uint8_t rack;          // byte 4
    uint8_t unit;          // byte 5
    uint8_t reserved6[2];
    uint8_t partition;     // byte 8
    uint8_t reserved9;
    uint8_t box;           // byte 10
    uint8_t slot;          // byte 11: I/O slot or bay
    uint8_t dimm;          // byte 12
    uint8_t slot2;         // byte 13: controller slot or box
    uint8_t reserved14[2];
} __physloc_data_t;

typedef physloc_rtn_t (*physloc_init_data_fn)(__physloc_data_t* data, unsigned char version);
typedef physloc_rtn_t (*physloc_encode_fn)(const __physloc_data_t* data, unsigned long long* pl);
typedef physloc_rtn_t (*physloc_get_string_fn)(physloc_string_type_t type, unsigned long long pl, char* text);

// Byte offsets of the fields, for anyone who reads the structure raw.
enum {
    PHYSLOC_BYTE_TYPE = 0,
    PHYSLOC_BYTE_RACK = 4,
    PHYSLOC_BYTE_UNIT = 5,
    PHYSLOC_BYTE_PARTITION = 8,
    PHYSLOC_BYTE_BOX = 10,
    PHYSLOC_BYTE_SLOT = 11,
    PHYSLOC_BYTE_DIMM = 12,
    PHYSLOC_BYTE_SLOT2 = 13,
    PHYSLOC_DATA_SIZE = 16,
};

// The text buffer physloc_get_string writes into.
#define PHYSLOC_STRING_SIZE 64

#ifdef __cplusplus
}
static_assert(sizeof(__physloc_data_t) == PHYSLOC_DATA_SIZE, "the encoders' structure is 16 bytes");
#endif
