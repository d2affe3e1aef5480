#ifndef KX_UUID_H
#define KX_UUID_H

/// @file
/// Time-based UUIDs (RFC 4122 version 1) and their text form; plain C functions.

// Time-based UUIDs (RFC 4122 version 1). No state file and no hardware address: the node is a
// hash of the time of day, the host name and bytes of the process's own (its id and random
// bytes, drawn once per process and again after fork), so that processes making UUIDs in the
// same microsecond on one host get different nodes. The top bit (0x80) of the node's first
// byte is set. That is not RFC 4122's multicast bit (0x01 of that byte, the mark of a node that
// is no network card's address), and these nodes do not carry that mark. The clock sequence is
// drawn afresh for every UUID. Creation is safe from several threads at once. The generator
// seeds the C library's shared rand() sequence once, on first use.

#include <cstdint>

#include "KXExport.h"

/// A UUID as its RFC 4122 fields, 16 bytes. Integer fields are in host byte order; only the
/// text form is byte-order independent.
typedef struct {
  uint32_t time_low;                  ///< Low 32 bits of the time stamp.
  uint16_t time_mid;                  ///< Middle 16 bits of the time stamp.
  uint16_t time_hi_and_version;       ///< High 12 bits of the time stamp, version 1 on top.
  uint8_t clock_seq_hi_and_reserved;  ///< High bits of the clock sequence, variant 10 on top.
  uint8_t clock_seq_low;              ///< Low 8 bits of the clock sequence.
  uint8_t node[6];                    ///< The node (not a hardware address).
} kx_uuid_t;

static_assert(sizeof(kx_uuid_t) == 16, "kx_uuid_t is part of the binary interface");

extern "C" {

/// Fills @p uuid with a new UUID and returns 1; returns 0 with errno EINVAL for a null record.
KX_EXPORT int native_uuid_create(kx_uuid_t* uuid);
/// Stores in *@p text a new string of 36 lower-case hexadecimal digits in groups 8-4-4-4-12
/// and returns its length. When the string cannot be allocated, or the record is null, stores
/// a null pointer and returns 0. Release the string with native_uuid_string_free.
KX_EXPORT int native_uuid_to_string(const kx_uuid_t* uuid, char** text);
/// Frees *@p text and sets it to null, so a second call frees nothing. Returns 0.
KX_EXPORT int native_uuid_string_free(char** text);

// The same operations under the portability layer's prefix.
/// native_uuid_create() under the portability layer's prefix.
KX_EXPORT int kx_uuid_create(kx_uuid_t* uuid);
/// native_uuid_to_string() under the portability layer's prefix; release with
/// kx_uuid_string_free.
KX_EXPORT int kx_uuid_to_string(const kx_uuid_t* uuid, char** text);
/// native_uuid_string_free() under the portability layer's prefix.
KX_EXPORT int kx_uuid_string_free(char** text);
}

#endif
