/*
 * Private side of the decibel conversion: the four-wide float path over
 * whole groups of bins, reachable at either width so that the two can be
 * held against each other.
 */
#ifndef TOLV_DBSCALE_H
#define TOLV_DBSCALE_H

struct _TOLV_DbArgs {
    const float *psd;   /* 16-byte aligned */
    float *db;          /* 16-byte aligned */
    const float *curve; /* 16-byte aligned, or null */
    float gain;         /* 1 / H^2 */
    float ref;          /* 1 / sqrt(reference) */
    float floor;        /* -range */
};

/* 16 or 8 where the processor runs that many float lanes at once, else 4. */
int _TOLV_DbWidestLanes(void);

/* db[i] for i from 0 below end (a multiple of 4), `lanes` at a time (4, or
 * 8 or 16 when _TOLV_DbWidestLanes allows it); the bits do not depend on
 * it. */
void _TOLV_DbVector(const _TOLV_DbArgs &args, int end, int lanes);

#endif
