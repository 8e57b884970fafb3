// What a build is made of: sources, compiler, processor level.
#pragma once

// The commit of the sources, with "-dirty" behind it where they were changed since; "unknown" where
// the build could not tell. Made by scripts/write_commit.cmake.
extern const char build_commit[];

// Name and version of the compiler.
extern const char build_compiler[];

// The level that the build was configured for: a word of ARCH.
extern const char build_level[];
