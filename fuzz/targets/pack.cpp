// Packs of a damaged data file and of the damaged memo file that it names.
#include "support/memos.h"

using namespace fuzz;

namespace {

template <class Calls>
void PackMemo(Session& session, int16_t data, uint16_t mode) {
    int16_t memo;
    if (session.Do([&] { return Calls::Open(&memo, "A.MEM", mode); }) < 0) return;
    session.Do([&] { return Calls::Pack(data, &memo); }, 64);
    void* text = nullptr;
    if (memo >= 0) session.Do([&] { return Calls::Get(memo, 1, &text, 0); });
    if (text) ZBMFREE(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    size_t dbtCount, fptCount;
    const std::string* dbt = DbtSeeds(&dbtCount);
    const std::string* fpt = FptSeeds(&fptCount);
    const DataSeeds& tables = DataFiles();
    FuzzInput input(bytes, size);
    uint8_t order = input.Byte();
    uint16_t mode = input.Word();
    std::string table = StartFile(input, tables.files, 9);
    std::string memo = order & 1 ? StartFile(input, fpt, fptCount) : StartFile(input, dbt, dbtCount);

    Session session;
    session.MayLeaveFiles();  // a pack that fails leaves its work file as it is
    session.platform.Put("A.DBF", table);
    session.platform.Put("A.MEM", memo);
    uint16_t handle;
    if (session.Do([&] { return ZBDDOPENX(&handle, "A.DBF", mode); }) < 0) return 0;
    auto data = static_cast<int16_t>(handle);
    auto packMemo = [&] {
        if (order & 1)
            PackMemo<FptCalls>(session, data, 0);
        else
            PackMemo<DbtCalls>(session, data, input.Byte() & 1 ? 2 : 1);
    };
    if (order & 2) packMemo();
    if (order & 4) session.Do([&] { return ZBDDRDEL(data, 2); });
    session.Do([&] { return ZBDDPACK(&data); }, 16);
    if (!(order & 2) && data >= 0) packMemo();
    if (data >= 0) session.Do([&] { return ZBDDRGET(data, 1); });
    return 0;
}
