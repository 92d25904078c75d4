/*
 * Platform data types: what the platform knows of the type of a value.
 */
#ifndef PLATFORM_DATA_TYPE_H
#define PLATFORM_DATA_TYPE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The size of a data type whose values differ in size. */
#define PLATFORM_DATA_TYPE_VARIABLE 0xFFFFu

/**
 * Orders two values of one data type and length, both in host order and at any alignment.
 * Negative, 0 or positive as A is less than, equal to or greater than B.
 */
typedef int32_t (*PLATFORM_DataTypeComparer)(uint16_t dataType, uint16_t length, const void *a, const void *b);

/** What the platform knows of a data type. Read only. */
typedef struct PLATFORM_DataType {
    uint16_t id;                       /**< data type id */
    uint16_t size;                     /**< fixed size in bytes, or PLATFORM_DATA_TYPE_VARIABLE */
    uint16_t storageKind;              /**< how a value is stored; decides its byte order conversion */
    PLATFORM_DataTypeComparer compare; /**< orders values of this type; may be null */
} PLATFORM_DataType;

/** Returns the descriptor of a data type id, or null. The descriptor stays the platform's. */
typedef const PLATFORM_DataType *(*PLATFORM_DataTypeLookup)(uint16_t dataType);

#ifdef __cplusplus
}
#endif

#endif
