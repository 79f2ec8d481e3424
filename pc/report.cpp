#include "pc/report.h"

#include <fstream>

#include "pc/kept_folder.h"
#include "platform/virtual/base/text.h"
#include "platform/virtual/console/outputs.h"

using namespace virtual_pc;

namespace {

// On the PC's disk.
constexpr const wchar_t* kPage = LR"(C:\report.html)";

bool CopyPage(const Machine& pc, const std::filesystem::path& to)
{
    const auto bytes = pc.disk.Read(kPage);
    std::ofstream page(to, std::ios::binary);
    page << bytes.value_or("");
    page.close();
    return bytes && page;
}

}  // namespace

int ReportOfRun(const PlayOptions& options, const ReportOptions& report, std::ostream& out,
                std::ostream& errors)
{
    const KeptFolder folder(options.machine.root);
    Machine pc(options.machine);
    pc.Install(
        Image{.host_path = std::filesystem::path(options.image).replace_filename("libholvctl.so"),
              .path = kCtlPath});
    std::wstring command = L"holvctl.exe report --days " + std::to_wstring(report.days);
    if (report.json) command += L" --json";
    if (!report.html.empty()) command += std::wstring(L" --html ") + kPage;
    Process& ctl = *pc.StartInstalled(kCtlPath, command);
    pc.RunUntilEnd(ctl);
    if (report.html.empty() || report.json) out << pc.outputs.console();
    if (!report.html.empty() && !CopyPage(pc, report.html)) {
        errors << report.html.string() << ": cannot be written\n";
        return 1;
    }
    if (!report.html.empty())
        out << "The picture of what the PC did: " << report.html.string() << "\n";
    return ctl.exit_code();
}
