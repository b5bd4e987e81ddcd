#include <cstdio>
#include <memory>

#include "common/FrameworkError.h"
#include "core/ZELRmUp.h"
#include "platform/Service.h"

int main(int argc, char* argv[]) {
    static constexpr char kTag[] = "[main]";
    try {
        const int result = ZELRmUp::GetInstance()->Run(argc, argv);
        ZELRmUp::DestroyInstance();
        return result;
    } catch (QENFx::Service::WorkException* thrown) {
        printf("%s Work exception occured: %s", kTag, TakeMessage(thrown).c_str());
    } catch (...) {
        printf("%s Unknown exception occured", kTag);
    }
    return 0;
}
