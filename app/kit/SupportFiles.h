// Files of the product's support folder.
#pragma once

#include <QString>

// The path of a file in the support folder.
QString supportFile(const char *relative);
