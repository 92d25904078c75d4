/*
 * The version of the library that a program is compiled with. The build takes it from here, too.
 *
 * The first number counts incompatible changes of what is exported, the second additions, the third corrections. A
 * program that was built with one version runs with every later one of the same first number.
 */
#ifndef TAV_VERSION_H
#define TAV_VERSION_H

/** Counts incompatible changes. */
#define TAV_VERSION_MAJOR 1
/** Counts additions since. */
#define TAV_VERSION_MINOR 0
/** Counts corrections since. */
#define TAV_VERSION_PATCH 0

/** A version as one number, to compare: `#if TAV_VERSION >= TAV_VERSION_OF(1, 2, 0)`. Each part is below 1,000. */
#define TAV_VERSION_OF(major, minor, patch) ((major)*1000000 + (minor)*1000 + (patch))

/** The version as one number. */
#define TAV_VERSION TAV_VERSION_OF(TAV_VERSION_MAJOR, TAV_VERSION_MINOR, TAV_VERSION_PATCH)

/* Private: in two steps, so that the parts are expanded first. */
#define TAV_VERSION_QUOTE_(major, minor, patch) #major "." #minor "." #patch
#define TAV_VERSION_TEXT_(major, minor, patch)  TAV_VERSION_QUOTE_(major, minor, patch)

/** The version as text, "1.2.3". */
#define TAV_VERSION_STRING TAV_VERSION_TEXT_(TAV_VERSION_MAJOR, TAV_VERSION_MINOR, TAV_VERSION_PATCH)

#endif
