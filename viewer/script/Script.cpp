#include "viewer/script/Script.h"

#include "terminal/ShallowJson.h"
#include "viewer/picture/PictureView.h"
#include "viewer/script/RequestReader.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <utility>

using nlohmann::json;
using VelBrx::Status;

namespace script {

namespace {

Status readStep(const json& object, std::optional<Request>& step)
{
    if (!object.is_object()) return Status::failure("expected an object with a member \"op\"");
    const auto op = object.find("op");
    if (op == object.end()) return Status::failure("\"op\" is missing");
    const Operation* const operation = op->is_string() ? findOperation(op->get<std::string>()) : nullptr;
    if (operation && !operation->windowOnly) return readRequest(object, step.emplace(*operation));
    std::string names;
    for (const Operation& known : operations())
        if (!known.windowOnly) names += (names.empty() ? "" : ", ") + std::string(known.name);
    return Status::failure("\"op\": " + op->dump(-1, ' ', false, json::error_handler_t::replace) +
                           " is no operation; there are " + names);
}

/// The text of a JSON document as a value; members named twice are refused, and what is nested too deep.
Status parse(const std::string& text, json& document)
{
    std::vector<std::set<std::string>> names; // of the objects that are open
    std::string repeated;
    bool isTooDeep = false;
    const auto watch = [&](int depth, json::parse_event_t event, json& value) {
        isTooDeep = isTooDeep || depth > kDeepestJson;
        if (isTooDeep) return false;
        if (event == json::parse_event_t::object_start) names.emplace_back();
        if (event == json::parse_event_t::object_end) names.pop_back();
        if (event == json::parse_event_t::key && !names.back().insert(value.get<std::string>()).second)
            repeated = value.dump();
        return true;
    };
    try {
        document = json::parse(text, watch);
    } catch (const json::exception& error) {
        const std::string what = error.what(); // "[json.exception...] parse error at line 1, ..."
        const size_t end = what.find("] ");
        return Status::failure("is no JSON: " + (end == std::string::npos ? what : what.substr(end + 2)));
    }
    if (isTooDeep) return Status::failure("is nested more than " + std::to_string(kDeepestJson) + " deep");
    return repeated.empty() ? Status() : Status::failure(repeated + " stands twice in one object");
}

Status readText(const std::string& file, std::string& text)
{
    std::ifstream stream;
    if (file != "-") stream.open(file, std::ios::binary);
    std::istream& source = file == "-" ? std::cin : stream;
    char block[1 << 16];
    while (source.read(block, sizeof block) || source.gcount() > 0)
        text.append(block, static_cast<size_t>(source.gcount()));
    if (!source.eof() || source.bad()) return Status::failure("cannot be read");
    return Status();
}

/// What no operation can check alone: the window comes first and its size is not said twice, and no picture
/// is in the way of another file.
class OrderChecks
{
public:
    OrderChecks(HeadlessRequest& request, bool force) : _request(request), _force(force) {}

    Status check(const Request& step, size_t index)
    {
        const std::string operation = step.operation().name;
        if (operation == "window")
            return checkWindow({step.get<int>("width"), step.get<int>("height")}, index);
        if (operation == "render") return checkPicture(step.get<std::string>("file"));
        if (operation == "export") return checkExport(step);
        return Status();
    }

private:
    Status checkWindow(const PictureSize& size, size_t index)
    {
        if (index > 0) return Status::failure("the window's size can only be set by the first operation");
        if (_request.sized) return Status::failure("the window's size is given by --size already");
        _request.size = size;
        return Status();
    }

    Status checkPicture(const std::string& file)
    {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::absolute(file, error).lexically_normal();
        if (!std::filesystem::is_directory(path.parent_path(), error))
            return Status::failure(file + ": its folder does not exist");
        if (!_pictures.insert(path.string()).second)
            return Status::failure(file + ": is drawn by an operation before");
        return checkPicturePath(file, _force);
    }

    Status checkExport(const Request& step) const
    {
        const auto& file = step.get<std::string>("file");
        std::error_code error;
        if (_force || step.get<bool>("replace") || !std::filesystem::exists(file, error)) return Status();
        return Status::failure(file + ": exists already; \"replace\": true or --force replaces it");
    }

    HeadlessRequest& _request;
    const bool _force;
    std::set<std::string> _pictures;
};

Status readSteps(const std::string& text, Options& options, Script& script)
{
    json document;
    if (Status status = parse(text, document); !status) return status;
    if (!document.is_array()) return Status::failure("expected a list of operations");
    OrderChecks checks(*options.headless, options.force);
    for (size_t i = 0; i < document.size(); ++i) {
        std::optional<Request> step;
        Status status = readStep(document[i], step);
        if (status) status = checks.check(*step, i);
        if (!status) {
            return Status::failure(nameOfStep(i, step ? &step->operation() : nullptr) + ": " +
                                   status.message());
        }
        script.steps.push_back(std::move(*step));
    }
    return Status();
}

} // namespace

std::string nameOfStep(size_t index, const Operation* operation)
{
    return "operation " + std::to_string(index + 1) +
           (operation ? " (" + std::string(operation->name) + ")" : "");
}

Status read(Options& options, Script& script)
{
    const std::string& file = options.headless->script;
    script.name = file == "-" ? "standard input" : file;
    std::string text;
    Status status = readText(file, text);
    if (status) status = readSteps(text, options, script);
    return status ? status : Status::failure(script.name + ": " + status.message());
}

} // namespace script
