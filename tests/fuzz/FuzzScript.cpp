// Scripts as an enemy would write them: read or refused in one line. A script that is read has steps that can
// be tried.

#include "tests/fuzz/FuzzFile.h"
#include "viewer/script/Script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const FuzzFile file("script.json");
    Options options;
    options.headless.emplace();
    options.headless->script = file.put(data, size);
    script::Script read;
    const VelBrx::Status status = script::read(options, read);
    if (!reported(status)) {
        expect(status.message().find('\n') == std::string::npos, "a failure of more than a line");
        return 0;
    }
    for (const Request& step : read.steps)
        expect(reported(step.check()) && !step.operation().windowOnly, "a step that cannot be tried");
    return 0;
}
