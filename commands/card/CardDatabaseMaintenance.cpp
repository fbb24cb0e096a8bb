// Commands on the card database as a whole: re-dimensioning, pre-indexing, reloading, and its
// two counts.

#include "frame/Master.h"
#include "frame/Transaction.h"
#include "protocol/Codes.h"

namespace zanth {
namespace {

// A command whose reply is the controller's result and then `counts` numbers, stored in order.
// The result of the call is the controller's, not a count.
int32_t CountCommand(Transaction& t, int32_t code, int32_t reply,
                     std::initializer_list<int32_t*> counts) {
    if (!t.Admit()) return t.Result();
    if (t.Blocking()) {
        for (int32_t* count : counts) t.Present(count);
    }
    if (!t.Send(code) || !t.Await() || !t.Expect(reply)) return t.Result();
    ReplyFields f = t.Fields();
    f.ControllerResult();
    for (int32_t* count : counts) f.Int(count);
    return t.Result();
}

}  // namespace

int32_t Master::ExecuteChangeOverDB(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t numberOfCardholders) {
    Transaction t(*this, "Master::ExecuteChangeOverDB", rspfunc, rspid, mac);
    if (!t.Admit() || !t.Check("number of cardholders", numberOfCardholders, 1, 500000))
        return t.Result();
    if (!t.Send(ZANTH_EXECUTE_DB_CHANGE_OVER, Payload().Int(numberOfCardholders)) || !t.Await() ||
        !t.Expect(ZANTH_EXECUTE_DB_CHANGE_OVER_RSP))
        return t.Result();
    return t.BareResult();
}

int32_t Master::ExecutePreindexDB(int32_t rspfunc, int32_t rspid, const char* mac) {
    Transaction t(*this, "Master::ExecutePreindexDB", rspfunc, rspid, mac);
    return CountCommand(t, ZANTH_EXECUTE_PREINDEX_DB, ZANTH_EXECUTE_PREINDEX_DB_RSP, {});
}

int32_t Master::ExecuteReloadDB(int32_t rspfunc, int32_t rspid, const char* mac) {
    Transaction t(*this, "Master::ExecuteReloadDB", rspfunc, rspid, mac);
    return CountCommand(t, ZANTH_EXECUTE_RELOAD_DB, ZANTH_EXECUTE_RELOAD_DB_RSP, {});
}

int32_t Master::GetNumberOfCards(int32_t rspfunc, int32_t rspid, const char* mac,
                                 int32_t* firstCount, int32_t* secondCount) {
    Transaction t(*this, "Master::GetNumberOfCards", rspfunc, rspid, mac);
    return CountCommand(t, ZANTH_GET_NUMBER_OF_CARDS, ZANTH_GET_NUMBER_OF_CARDS_RSP,
                        {firstCount, secondCount});
}

int32_t Master::GetNumberDelRecords(int32_t rspfunc, int32_t rspid, const char* mac,
                                    int32_t* count) {
    Transaction t(*this, "Master::GetNumberDelRecords", rspfunc, rspid, mac);
    return CountCommand(t, ZANTH_GET_NUMBER_DEL_RECORDS, ZANTH_GET_NUMBER_DEL_RECORDS_RSP, {count});
}

}  // namespace zanth
