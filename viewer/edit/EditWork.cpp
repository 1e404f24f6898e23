#include "viewer/edit/EditWork.h"

#include <VelOsgDBBrx/CategoryCalcTool.h>
#include <VelOsgDBBrx/CullCmdManager.h>

#include <algorithm>
#include <chrono>

using VelBrx::Status;
using namespace VelOsgDBBrx;

void EditWork::push(BaseCmd* cmd)
{
    _commands.push_back(cmd);
    CullCmdManager::getInstance()->push(cmd);
}

void EditWork::push(Category* request)
{
    const osg::ref_ptr<Category> held = request;
    held->report = new CategoryReport;
    _reports.push_back(held->report);
    CategoryCalcTool::getInstance()->push(held);
}

void EditWork::save()
{
    _save = std::async(std::launch::async, [] { return CategoryCalcTool::getInstance()->writeToStores(); });
}

bool EditWork::isFinished() const
{
    const bool saving = _save.valid() && _save.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
    return !saving && std::all_of(_commands.begin(), _commands.end(), [](const auto& cmd) {
        return cmd->getResult().state != CmdResult::WAITING;
    }) && std::all_of(_reports.begin(), _reports.end(), [](const auto& report) {
        return report->state() != CategoryReport::WAITING;
    });
}

CmdResult EditWork::commands() const
{
    CmdResult sum;
    sum.state = CmdResult::DONE;
    for (const auto& cmd : _commands)
        sum.add(cmd->getResult());
    return sum;
}

CategoryCounts EditWork::counts() const
{
    CategoryCounts sum;
    for (const auto& report : _reports)
        sum += report->counts();
    return sum;
}

Status EditWork::status()
{
    for (const auto& report : _reports)
        if (const Status status = report->status(); !status) return status;
    return _save.valid() ? _save.get() : Status();
}
