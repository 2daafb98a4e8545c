#include "app/kit/SupportFiles.h"

#include "platform/host.h"

QString supportFile(const char *relative)
{
    return QString::fromLocal8Bit(platform_path(PlatformPath::support_dir)) + QLatin1Char('/') +
           QString::fromLocal8Bit(relative);
}
