// Outcomes as text and as JSON.
#include "melk/session.h"

#include <cerrno>
#include <cstring>

namespace melk {

namespace {

// What to do about it, where the failure alone does not say.
const char* hint_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kSilent:
      return "the service must run (vantorig -602); after send-config or update it is busy for up "
             "to a minute, which --timeout 60 waits for";
    case Trouble::kIncomplete:
      return "an upload is given up by the board after 15 s; a download stays open until its last "
             "byte or a restart of the service";
    case Trouble::kNoFile:
      return "make-logs packs the archives; the status file needs the service started with getmon";
    case Trouble::kOutOfStep:
      return "leave the board alone for 15 s and ask again";
    case Trouble::kRefused:
      return "nothing was sent; look at what you gave";
    case Trouble::kNoDevice:
      return "look for the device node on the board; if it is there the service has no handles "
             "left and is to be restarted";
    case Trouble::kNone:
      break;
  }
  return "";
}

}  // namespace

double board_seconds(std::int64_t us) { return static_cast<double>(us) / 1e6; }

void print_json(FILE* out, const Json& json) {
  fprintf(out, "%s\n", json.dump(-1, ' ', true, Json::error_handler_t::replace).c_str());
  fflush(out);
}

int report(const Session& session, const std::string& text, const Json& fields, int exit_code) {
  if (session.json) {
    Json json = {{"command", session.request.word}};
    json.update(fields.is_null() ? Json::object() : fields);
    json["exit"] = exit_code;
    print_json(session.out, json);
  } else {
    fprintf(session.out, "%s\n", text.c_str());
    fflush(session.out);
  }
  return exit_code;
}

void note(const Session& session, const std::string& text) {
  fprintf(session.err, "melk: note: %s\n", text.c_str());
}

int complain(const Complaint& complaint, bool json, FILE* out, FILE* err) {
  const std::string& word = complaint.word;
  fprintf(err, "melk: %s%s%s\n", word.c_str(), word.empty() ? "" : ": ", complaint.text.c_str());
  if (!complaint.hint.empty()) fprintf(err, "melk: hint: %s\n", complaint.hint.c_str());
  if (!json) return complaint.exit_code;
  Json object = Json::object();
  if (!word.empty()) object["command"] = word;
  object["error"] = complaint.text;
  if (!complaint.hint.empty()) object["hint"] = complaint.hint;
  object["exit"] = complaint.exit_code;
  print_json(out, object);
  return complaint.exit_code;
}

int fail(const Session& session, const std::string& text, int exit_code, const std::string& hint) {
  return complain({session.request.word, text, hint, exit_code}, session.json, session.out,
                  session.err);
}

int fail(const Session& session, const Failure& failure) {
  const std::string broken = session.link.transport.broken();
  if (!broken.empty()) return fail(session, broken, kBoardSilent, "look at the wire and --speed");
  return fail(session, failure.text, exit_code_of(failure.trouble), hint_of(failure.trouble));
}

int fail_file(const Session& session, const std::string& path) {
  return fail(session, path + ": " + strerror(errno), kLocalFile,
              "look at the name and at what you may read and write");
}

int exit_code_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNone:
      return kDone;
    case Trouble::kSilent:
      return kBoardSilent;
    case Trouble::kIncomplete:
      return kIncompleteTransfer;
    case Trouble::kNoFile:
    case Trouble::kOutOfStep:
    case Trouble::kNoDevice:
      return kBoardSaysNo;
    case Trouble::kRefused:
      return kLocalFile;
  }
  return kBoardSaysNo;
}

Json status_json(const Status& status) {
  return {{"status", status.status},
          {"healthy", status_healthy(status.status) && status.status != kStatusWrongSize},
          {"status_text", describe_status(status.status)},
          {"cause", status.cause},
          {"cause_text", describe_cause(status.cause)},
          {"flags", status.flags},
          {"flags_text", set_flags(status.flags)}};
}

std::string status_text(const Status& status) {
  return text_of("status 0x%02x  %s\ncause  0x%02x  %s\nflags  0x%02x  %s", status.status,
                 describe_status(status.status).c_str(), status.cause, describe_cause(status.cause),
                 status.flags, joined(set_flags(status.flags)).c_str());
}

void note_skipped(const Session& session, const Status& status) {
  if (status.skipped > 0)
    note(session, text_of("%d status bytes of an earlier reading passed over", status.skipped));
}

}  // namespace melk
