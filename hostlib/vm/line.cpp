#include "hostlib/vm/line.h"

size_t line_read(FILE *stream, std::string *line)
{
    line->clear();
    size_t length = 0;
    for (int byte = 0; byte != '\n' && (byte = getc(stream)) != EOF; ++length)
        if (line->size() < LINE_MAX_BYTES)
            line->push_back(static_cast<char>(byte));
    return length;
}
