#pragma once

#include "mapstyles.h"

/// Takes every style through each of its forms and back (record, record of all fields, XML in both dialects,
/// feature style, SLD) and prints the bytes of each as a table. False when a form does not give back what it
/// should.
bool PrintForms(const Legend& legend);

/// One style in the languages of other programs, with what they leave out.
void PrintExports(const Entry& entry);
