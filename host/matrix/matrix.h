#pragma once

// The host matrix API. C linkage over an opaque array type, so that another host environment
// can supply the same functions without touching the library. Arrays are column-major with two
// dimensions. Every function that creates an array returns an owned pointer (destroy it with
// vxDestroyArray, or hand it to a container that takes ownership), or NULL when memory runs out.
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct vxArray_tag vxArray_tag;
typedef vxArray_tag vxArray;

typedef enum {
  vxUNKNOWN_CLASS = 0,
  vxCELL_CLASS = 1,
  vxSTRUCT_CLASS = 2,
  vxLOGICAL_CLASS = 3,
  vxCHAR_CLASS = 4, /* UTF-16 code units */
  vxDOUBLE_CLASS = 6,
  vxSINGLE_CLASS = 7,
  vxINT8_CLASS = 8,
  vxUINT8_CLASS = 9,
  vxINT16_CLASS = 10,
  vxUINT16_CLASS = 11,
  vxINT32_CLASS = 12,
  vxUINT32_CLASS = 13,
  vxINT64_CLASS = 14,
  vxUINT64_CLASS = 15,
  vxOBJECT_CLASS = 18 /* a structure with a class name */
} vxClassID;

typedef enum { vxREAL = 0, vxCOMPLEX = 1 } vxComplexity;

typedef uint16_t vxChar;
typedef bool vxLogical;

/* Creation. Numeric arrays are zero-filled; the "Uninit" form leaves the data as allocated.
   Only vxDOUBLE_CLASS and vxSINGLE_CLASS may be complex (interleaved real, imaginary). */
vxArray* vxCreateNumericMatrix(size_t m, size_t n, vxClassID classid, vxComplexity complexity);
vxArray* vxCreateUninitNumericMatrix(size_t m, size_t n, vxClassID classid,
                                     vxComplexity complexity);
/* A real numeric array over data that the caller already holds, without copying it. The array
   reads and writes the data in place; when it is destroyed it calls release(context) (if
   release is not NULL) and never frees data itself. Copies made by vxDuplicateArray own their
   data. Returns NULL (after calling release) when classid is not numeric or data is NULL
   for a nonempty array. */
vxArray* vxCreateNumericMatrixOver(size_t m, size_t n, vxClassID classid, void* data,
                                   void (*release)(void*), void* context);
vxArray* vxCreateDoubleMatrix(size_t m, size_t n, vxComplexity complexity);
vxArray* vxCreateDoubleScalar(double value);
vxArray* vxCreateLogicalMatrix(size_t m, size_t n);
vxArray* vxCreateLogicalScalar(bool value);
/* Cells start empty (NULL elements). */
vxArray* vxCreateCellMatrix(size_t m, size_t n);
/* Fields start empty (NULL values). */
vxArray* vxCreateStructMatrix(size_t m, size_t n, int nfields, const char** fieldnames);
/* An object is a structure with a class name ("string", "datetime", "table", ...). */
vxArray* vxCreateObjectMatrix(size_t m, size_t n, const char* classname, int nfields,
                              const char** fieldnames);
/* A 1-by-n char row vector from UTF-16 units, or from UTF-8 text (invalid bytes become U+FFFD). */
vxArray* vxCreateStringFromUTF16(const vxChar* units, size_t n);
vxArray* vxCreateString(const char* utf8);
/* An m-by-n char array, zero-filled; the "Uninit" form leaves the data as allocated. */
vxArray* vxCreateCharArray(size_t m, size_t n);
vxArray* vxCreateUninitCharArray(size_t m, size_t n);

void vxDestroyArray(vxArray* array);
vxArray* vxDuplicateArray(const vxArray* array);

/* Shape and class. */
size_t vxGetM(const vxArray* array);
size_t vxGetN(const vxArray* array);
size_t vxGetNumberOfElements(const vxArray* array);
bool vxIsEmpty(const vxArray* array);
vxClassID vxGetClassID(const vxArray* array);
/* "double", "cell", "struct", ... for plain arrays; the class name for objects. */
const char* vxGetClassName(const vxArray* array);
bool vxIsComplex(const vxArray* array);
size_t vxGetElementSize(const vxArray* array);
/* Reshapes without touching the data; m*n must equal the element count. Returns 0 on success. */
int vxSetDimensions(vxArray* array, size_t m, size_t n);

/* Data. For complex arrays the data is interleaved (re, im) pairs. */
void* vxGetData(const vxArray* array);
double* vxGetPr(const vxArray* array); /* double arrays only, else NULL */
vxLogical* vxGetLogicals(const vxArray* array);
vxChar* vxGetChars(const vxArray* array);

/* Structures and objects. vxGetField returns a borrowed pointer, NULL when the field or value
   is missing. vxSetField takes ownership of value and destroys the value it replaces. */
int vxGetNumberOfFields(const vxArray* array);
const char* vxGetFieldNameByNumber(const vxArray* array, int number);
int vxGetFieldNumber(const vxArray* array, const char* name); /* -1 when missing */
int vxAddField(vxArray* array, const char* name);            /* its number, or -1 */
vxArray* vxGetField(const vxArray* array, size_t index, const char* name);
void vxSetField(vxArray* array, size_t index, const char* name, vxArray* value);

/* Cells. vxGetCell returns a borrowed pointer (NULL for an empty element). vxSetCell takes
   ownership of value and does not destroy what was there (as the host's own API);
   vxReplaceCell takes ownership and destroys the previous element. */
vxArray* vxGetCell(const vxArray* array, size_t index);
void vxSetCell(vxArray* array, size_t index, vxArray* value);
void vxReplaceCell(vxArray* array, size_t index, vxArray* value);

/* Char arrays: the number of UTF-16 units, and a copy of them into buffer (at most capacity
   units). Returns the number of units copied, or (size_t)-1 when array is not char. */
size_t vxGetStringLength(const vxArray* array);
size_t vxGetUTF16String(const vxArray* array, vxChar* buffer, size_t capacity);

/* Warnings: the host records each warning (identifier and UTF-8 arguments) and shows it. */
void vxWarningMsgId(const char* identifier, size_t nargs, const char* const* utf8args);

#ifdef __cplusplus
}  // extern "C"
#endif
