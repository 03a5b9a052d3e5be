// The parts of the search for a fully qualified host name that understand bytes.
#pragma once

// The name of the one question in a DNS reply of `length` bytes (RFC 1035, section 4.1) into `out`. Returns 0; -1 if
// the reply does not hold exactly one question, -2 if its name cannot be expanded into `size` bytes.
int questionNameOfReply(const unsigned char* reply, int length, char* out, int size);
