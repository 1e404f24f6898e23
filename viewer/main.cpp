#include "terminal/ClassesFile.h"
#include "terminal/Commit.h"
#include "terminal/LastWords.h"
#include "terminal/Text.h"
#include "viewer/display/Palettes.h"
#include "viewer/picture/PictureView.h"
#include "viewer/picture/Render.h"
#include "viewer/scene/Options.h"
#include "viewer/scene/Scene.h"
#include "viewer/scene/StoreCache.h"
#include "viewer/script/Script.h"
#include "viewer/script/ScriptRunner.h"
#include "viewer/settings/Settings.h"
#include "viewer/window/KeptLook.h"
#include "viewer/window/Notices.h"
#include "viewer/window/Window.h"

#include <VelBrx/ReadErrors.h>
#include <osg/ArgumentParser>
#include <osgViewer/Viewer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

using VelBrx::Status;

namespace {

bool hasDisplay()
{
    const char* display = std::getenv("DISPLAY");
    return display && *display;
}

bool isScript(const Options& options)
{
    return options.headless && !options.headless->script.empty();
}

/// Checks all that can be checked before the first file is opened.
Status checkOptions(osg::ArgumentParser& arguments, Options& options, script::Script& script)
{
    if (Status status = readOptions(arguments, options); !status) return status;
    if (isScript(options)) return script::read(options, script);
    if (options.headless) return checkPicturePath(options.headless->picture, options.force);
    if (!hasDisplay()) {
        return Status::failure(
            "there is no display to open a window on; --render OUT.png draws a picture without "
            "one, and --script FILE edits");
    }
    return Status();
}

/// A picture has a window of its own: options that make one on a display are left over then, and reported.
osg::ref_ptr<osgViewer::Viewer> makeViewer(osg::ArgumentParser& arguments, const Options& options)
{
    const QuietNotices quiet;
    return options.headless ? new osgViewer::Viewer : new osgViewer::Viewer(arguments);
}

/// The stores of the files that the user named. A window builds what is missing when it is there.
Status findStores(Options& options, std::vector<std::string>& stores)
{
    for (const std::string& input : options.inputs) {
        StorePlan plan;
        const Status status = options.headless
                                  ? findOrBuildStore(input, options.force, plan.store, options.store)
                                  : findStore(input, options.force, options.store, plan);
        if (!status) return status;
        stores.push_back(plan.store);
        if (!isScript(options)) continue; // a picture edits nothing, a window warns when it opens the store
        if (const std::string warning = warnOfCache(input, plan.store); !warning.empty())
            options.warnings.push_back(warning);
    }
    return Status();
}

/// A picture opens what is in it of folders that have an index file: their stores wait, and are no inputs.
Status awaitIndexed(const std::vector<std::string>& named, Options& options,
                    std::vector<WaitingStore>& waiting)
{
    if (!options.headless || isScript(options)) return {};
    std::set<std::filesystem::path> known;
    for (const std::string& input : named) {
        if (!hasIndexFile(input)) continue;
        std::vector<std::string> problems;
        if (Status status = readIndexedStores(input, waiting, options.warnings, problems); !status)
            return status;
        if (!problems.empty()) return Status::failure(problems.front());
    }
    for (const WaitingStore& store : waiting)
        known.insert(std::filesystem::path(store.path).lexically_normal());
    const auto isKnown = [&](const std::string& input) {
        return known.count(std::filesystem::path(input).lexically_normal()) > 0;
    };
    options.inputs.erase(std::remove_if(options.inputs.begin(), options.inputs.end(), isKnown),
                         options.inputs.end());
    return {};
}

Status run(osg::ArgumentParser& arguments)
{
    const bool isHeadless = arguments.find("--render") > 0 || arguments.find("--script") > 0;
    Settings settings(isHeadless ? "" : Settings::defaultPath());
    Options options;
    recallLook(settings, options);
    script::Script script;
    if (Status status = checkOptions(arguments, options, script); !status) return status;

    const osg::ref_ptr<osgViewer::Viewer> viewer = makeViewer(arguments, options);
    if (Status status = readInputs(arguments, options); !status) return status;

    const std::vector<std::string> named(arguments.argv() + 1, arguments.argv() + arguments.argc());
    std::vector<WaitingStore> waiting;
    if (Status status = awaitIndexed(named, options, waiting); !status) return status;
    std::vector<std::string> stores;
    if (Status status = findStores(options, stores); !status) return status;
    std::vector<std::string> all = stores;
    for (const WaitingStore& store : waiting)
        all.push_back(store.path);
    ChosenClasses classes;
    if (Status status = chooseClasses(options.classesFile, all, classes); !status) return status;
    if (!classes.warning.empty()) options.warnings.push_back(classes.warning);
    setClassTable(classes.table);
    options.classesFile = classes.file;
    for (const std::string& warning : options.warnings)
        std::fprintf(stderr, "brxview: %s\n", printable(warning).c_str());
    Scene scene;
    if (!options.headless) {
        // Folders as they were named: a window shows what comes into them.
        options.inputs = named;
        scene.setLook(options);
        recallLook(settings, scene);
        return runInWindow(*viewer, scene, options, settings);
    }
    if (Status status = scene.load(stores, std::move(waiting), options); !status) return status;
    return isScript(options) ? script::run(script, *viewer, scene, options) : render(*viewer, scene, options);
}

} // namespace

int main(int argc, char** argv)
{
    endInOneLine("brxview");
    VelBrx::surviveReadErrors();
    osg::setNotifyHandler(new StderrNotices);
    osg::ArgumentParser arguments(&argc, argv);
    osg::ApplicationUsage* usage = arguments.getApplicationUsage();
    describeOptions(*usage);
    if (arguments.read("--version")) {
        std::puts(versionLine("brxview").c_str());
        return 0;
    }
    if (arguments.read("-h") || arguments.read("--help")) {
        usage->write(std::cout, osg::ApplicationUsage::COMMAND_LINE_OPTION);
        return 0;
    }
    const Status status = run(arguments);
    if (!status) std::fprintf(stderr, "brxview: %s\n", printable(status.message()).c_str());
    return status ? 0 : 1;
}
