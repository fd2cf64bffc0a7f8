/* Octave arrays made with Octave's own C++ API, behind a plain C interface.
 *
 * The gateway is built with the library's std::string ABI and sees Octave only through the
 * MEX interface, whose arrays are copied element by element when a MEX function returns and
 * whose cells cost one MEX array per text. This small library is built with Octave's ABI
 * instead: it makes each column directly as the Octave value Octave itself would hold, and
 * wraps it in an mxArray that Octave takes back without copying. No C++ type crosses this
 * interface, so the two ABIs never meet.
 *
 * The arrays returned are not registered with the MEX call: put them into a struct or cell
 * made by mxCreate* (which then owns them) or release them with mxDestroyArray. Every
 * function returns NULL when Octave cannot allocate the array.
 *
 * Include mex.h (gateway) or Octave's mxarray.h (this library) first: each defines mxArray.
 */
#ifndef VANTRO_OCTAVE_ARRAYS_H
#define VANTRO_OCTAVE_ARRAYS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An m-by-n numeric array of the class, its elements copied once from column-major data
 * (by up to `threads` threads). */
mxArray* vxoct_numeric_array(mxClassID id, const void* data, size_t m, size_t n, int threads);

/* An m-by-n numeric array of the class over data itself, a block of the C library's allocator
 * holding at least m*n elements, which Octave frees with operator delete. *taken says whether
 * Octave took data: once taken, it is Octave's even when making the array fails afterwards
 * (NULL), and nobody may read it through another pointer. */
mxArray* vxoct_adopted_numeric_array(mxClassID id, void* data, size_t m, size_t n, int* taken);

/* An m-by-n logical array; each byte of data is 0 (false) or not (true). */
mxArray* vxoct_logical_array(const uint8_t* data, size_t m, size_t n);

/* An rows-by-1 cell of texts. Text r is the UTF-16 units[offsets[r] .. offsets[r + 1]), held
 * as a 1xN char row of its UTF-8 bytes (unpaired surrogates become U+FFFD; the empty text is
 * 0x0 char); where missing is given and missing[r] is not 0, the element is [] (0x0 double)
 * and its units are ignored. The caller checks that offsets do not decrease. Up to `threads`
 * threads make the elements; the rows of each share one block of bytes. */
mxArray* vxoct_text_column(const uint16_t* units, const uint64_t* offsets, const uint8_t* missing,
                           size_t rows, int threads);

/* The elements of a cell made only of char rows (1xN or 0x0 char) and [] (0x0 double): for
 * each element, where its bytes start and how many there are (Octave's own data, valid while
 * the cell lives) and whether it is [] (missing[i] = 1). Returns 1 when every element is one
 * of these, 0 when one is not or `cell` is no cell of `count` elements. The elements are looked
 * at by up to `threads` threads, which only read them. */
int vxoct_cell_texts(const mxArray* cell, size_t count, const char** data, uint64_t* lengths,
                     uint8_t* missing, int threads);

#ifdef __cplusplus
}
#endif

#endif
