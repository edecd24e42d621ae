#ifndef QUOREL_UTILS_AES_AESSBOX_H
#define QUOREL_UTILS_AES_AESSBOX_H

/// The AES substitution (FIPS 197 section 5.1.1) as a circuit of logical operations, so that no
/// memory address depends on what is substituted. Word may be any type with ^, & and ~; each bit
/// position of the words is a substitution of its own, plane[i] holding bit i of the bytes.
///
/// Everything is inlined always: an instance that the linker shares between files compiled for
/// different processors could run on the wrong one.

/// The circuit is the one of J. Boyar and R. Peralta, "A small depth-16 circuit for the AES S-box"
/// (2012): a linear layer into a tower of fields, the inversion there, and a linear layer back with
/// the affine constant folded in. Names follow the paper.
template <class Word>
[[gnu::always_inline]] inline void aes_substitute(Word (&plane)[8]) {
    const Word x0 = plane[7], x1 = plane[6], x2 = plane[5], x3 = plane[4];
    const Word x4 = plane[3], x5 = plane[2], x6 = plane[1], x7 = plane[0];

    // Top linear layer.
    const Word y14 = x3 ^ x5, y13 = x0 ^ x6, y9 = x0 ^ x3, y8 = x0 ^ x5, t0 = x1 ^ x2;
    const Word y1 = t0 ^ x7, y4 = y1 ^ x3, y12 = y13 ^ y14, y2 = y1 ^ x0, y5 = y1 ^ x6;
    const Word y3 = y5 ^ y8, t1 = x4 ^ y12, y15 = t1 ^ x5, y20 = t1 ^ x1, y6 = y15 ^ x7;
    const Word y10 = y15 ^ t0, y11 = y20 ^ y9, y7 = x7 ^ y11, y17 = y10 ^ y11, y19 = y10 ^ y8;
    const Word y16 = t0 ^ y11, y21 = y13 ^ y16, y18 = x0 ^ y16;

    // Inversion: products of the halves ...
    const Word t2 = y12 & y15, t4 = (y3 & y6) ^ t2, t6 = (y4 & x7) ^ t2;
    const Word t7 = y13 & y16, t9 = (y5 & y1) ^ t7, t11 = (y2 & y7) ^ t7;
    const Word t12 = y9 & y11, t14 = (y14 & y17) ^ t12, t16 = (y8 & y10) ^ t12;
    const Word t21 = t4 ^ t14 ^ y20, t22 = t6 ^ t16 ^ y19;
    const Word t23 = t9 ^ t14 ^ y21, t24 = t11 ^ t16 ^ y18;

    // ... the inverse in the field of sixteen ...
    const Word t25 = t21 ^ t22, t26 = t21 & t23, t27 = t24 ^ t26, t29 = (t25 & t27) ^ t22;
    const Word t30 = t23 ^ t24, t31 = t22 ^ t26, t33 = (t31 & t30) ^ t24;
    const Word t34 = t23 ^ t33, t35 = t27 ^ t33, t36 = t24 & t35, t37 = t36 ^ t34;
    const Word t38 = t27 ^ t36, t40 = t25 ^ (t29 & t38);
    const Word t41 = t40 ^ t37, t42 = t29 ^ t33, t43 = t29 ^ t40, t44 = t33 ^ t37;
    const Word t45 = t42 ^ t41;

    // ... and its products with the input.
    const Word z0 = t44 & y15, z1 = t37 & y6, z2 = t33 & x7, z3 = t43 & y16, z4 = t40 & y1;
    const Word z5 = t29 & y7, z6 = t42 & y11, z7 = t45 & y17, z8 = t41 & y10, z9 = t44 & y12;
    const Word z10 = t37 & y3, z11 = t33 & y4, z12 = t43 & y13, z13 = t40 & y5, z14 = t29 & y2;
    const Word z15 = t42 & y9, z16 = t45 & y14, z17 = t41 & y8;

    // Bottom linear layer.
    const Word t46 = z15 ^ z16, t47 = z10 ^ z11, t48 = z5 ^ z13, t49 = z9 ^ z10, t50 = z2 ^ z12;
    const Word t51 = z2 ^ z5, t52 = z7 ^ z8, t53 = z0 ^ z3, t54 = z6 ^ z7, t55 = z16 ^ z17;
    const Word t56 = z12 ^ t48, t57 = t50 ^ t53, t58 = z4 ^ t46, t59 = z3 ^ t54, t60 = t46 ^ t57;
    const Word t61 = z14 ^ t57, t62 = t52 ^ t58, t63 = t49 ^ t58, t64 = z4 ^ t59, t65 = t61 ^ t62;
    const Word t66 = z1 ^ t63, t67 = t64 ^ t65, s3 = t53 ^ t66;
    plane[7] = t59 ^ t63;
    plane[6] = ~(t64 ^ s3);
    plane[5] = ~(t55 ^ t67);
    plane[4] = s3;
    plane[3] = t51 ^ t66;
    plane[2] = t47 ^ t65;
    plane[1] = ~(t56 ^ t62);
    plane[0] = ~(t48 ^ t60);
}

/// The inverse of the affine step: takes the constant 0x63 away and undoes the matrix.
template <class Word>
[[gnu::always_inline]] inline void aes_undo_affine(Word (&plane)[8]) {
    Word bare[8] = {~plane[0], ~plane[1], plane[2],  plane[3],
                    plane[4],  ~plane[5], ~plane[6], plane[7]};
    for (unsigned i = 0; i < 8; ++i) {
        plane[i] = bare[(i + 2) % 8] ^ bare[(i + 5) % 8] ^ bare[(i + 7) % 8];
    }
}

/// The inverse substitution. Inversion is its own inverse, so the forward circuit serves with the
/// affine step undone before it and after it.
template <class Word>
[[gnu::always_inline]] inline void aes_substitute_back(Word (&plane)[8]) {
    aes_undo_affine(plane);
    aes_substitute(plane);
    aes_undo_affine(plane);
}

#endif
