#include "audit/ExceptionState.h"

#include "audit/ErrorRecord.h"
#include "audit/HuntErr.h"

namespace tessel {

ExceptionState CaptureExceptionState() {
  const ErrorRecord& rec = ErrorRecord::Current();
  ExceptionState state;
  state.ErrNumber(rec.ErrNumber);
  state.ErrDescription(rec.ErrDescription);
  state.ErrSource(rec.ErrSource);
  state.ErrHelpFile(rec.ErrHelpFile);
  state.ErrHelpContext(rec.ErrHelpContext);
  state.Errl(rec.Errl);
  state.ErrAPI(rec.ErrAPI);
  state.ErrPreserved(rec.ErrPreserved);
  return state;
}

void RestoreExceptionState(const ExceptionState& state) {
  ErrorRecord& rec = ErrorRecord::Current();
  rec.ErrNumber = state.ErrNumber();
  rec.ErrDescription = state.ErrDescription();
  rec.ErrSource = state.ErrSource();
  rec.ErrHelpFile = state.ErrHelpFile();
  rec.ErrHelpContext = state.ErrHelpContext();
  rec.Errl = state.Errl();
  rec.ErrAPI = state.ErrAPI();
  rec.ErrPreserved = state.ErrPreserved();
  ErrRestore();
}

}  // namespace tessel
