/*
 * What must have been done before the first store is opened.
 */
#ifndef SESSION_START_H
#define SESSION_START_H

namespace session {

/** Completes the product's type table from the platform's data types, once in a process. */
void CompleteTypeTable();

}  // namespace session

#endif
