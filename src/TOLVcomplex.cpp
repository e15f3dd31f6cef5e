/*
 * Element-wise product of two complex vectors, in float.
 *
 * The real part of each product is stored before the imaginary part is
 * formed from factors read again from memory, so the product must not
 * overlap either factor: in place, the imaginary part would see the new real
 * part. No copy is made to allow that.
 */
#include "tolv.h"

extern "C" TOLV_API int TOLV_ComplexVectorMultiply(const TOLV_COMPLEX *a,
                                                   const TOLV_COMPLEX *b,
                                                   TOLV_COMPLEX *product,
                                                   int count)
{
    if (product == nullptr || b == nullptr || count < 0 || a == nullptr)
        return 0;
    for (int i = 0; i < count; i++) {
        product[i].re = a[i].re * b[i].re - a[i].im * b[i].im;
        product[i].im = a[i].im * b[i].re + b[i].im * a[i].re;
    }
    return 1;
}
