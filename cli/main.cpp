// corvin_switch_cli: the console of the corvin_switch library, on the driver model.
//
//     corvin_switch_cli [--keep-going] [--echo] [--history FILE] [--no-record] [SCRIPT | -]
//
// With a terminal and no script it runs interactively, with line editing, history and completion
// (libedit). Otherwise it runs the script, or standard input, line by line, and stops at the first
// command that fails, with exit status 1 (--keep-going runs on, and exits 1 if any failed).
#include <histedit.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "console.h"
#include "drv/model.h"

namespace {

const char kPrompt[] = "corvin> ";

struct Settings {
  bool keep_going = false;
  bool echo = false;
  bool record = true;
  const char *history = nullptr;
  const char *script = nullptr;
};

void usage(FILE *f) {
  std::fputs(
      "usage: corvin_switch_cli [--keep-going] [--echo] [--history FILE] [--no-record] [SCRIPT | -]\n"
      "  The console of the corvin_switch control-plane library, on the driver model.\n"
      "  SCRIPT (or - for standard input) runs line by line and stops at the first failing command\n"
      "  with exit status 1; without one, on a terminal, the console is interactive ('help').\n"
      "  --keep-going   run the whole script; exit status 1 if any command failed\n"
      "  --echo         write each script line after the prompt, as a session shows it\n"
      "  --history FILE keep the interactive history in FILE\n"
      "  --no-record    the driver model records no calls (model_calls shows none)\n",
      f);
}

void write_out(std::string &out) {
  if (!out.empty()) std::fwrite(out.data(), 1, out.size(), stdout);
  out.clear();
}

int run_script(cvcli::Console &console, FILE *in, const char *name, const Settings &s) {
  std::string out, err;
  char *line = nullptr;
  size_t room = 0;
  ssize_t n;
  size_t number = 0;
  int failed = 0;
  while ((n = getline(&line, &room, in)) >= 0) {
    ++number;
    std::string_view text(line, size_t(n));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
    if (s.echo) {
      out += kPrompt;
      out += text;
      out += '\n';
    }
    if (!console.execute(text, out, err)) {
      ++failed;
      write_out(out);
      std::fflush(stdout);
      std::fprintf(stderr, "%s:%zu: %s\n", name, number, err.c_str());
      std::fflush(stderr);
      if (!s.keep_going) break;
    }
    if (out.size() > (1u << 16)) write_out(out);
    if (console.finished()) break;
  }
  std::free(line);
  write_out(out);
  std::fflush(stdout);
  return failed ? 1 : 0;
}

// ---- Interactive ----

const char *prompt(EditLine *) { return kPrompt; }

// Tab: the completions of the word before the cursor. One: it is written out (with a blank after
// a whole word). Several: their common part is written, or, when there is none to add, they are
// listed under the line.
unsigned char complete(EditLine *el, int) {
  void *data = nullptr;
  el_get(el, EL_CLIENTDATA, &data);
  auto *console = static_cast<cvcli::Console *>(data);
  const LineInfo *li = el_line(el);
  std::string before(li->buffer, size_t(li->cursor - li->buffer));
  size_t start = before.find_last_of(" \t");
  std::string word = start == std::string::npos ? before : before.substr(start + 1);
  std::vector<std::string> found = console->complete(before);
  if (found.empty()) return CC_REFRESH_BEEP;
  std::string common = found[0];
  for (const std::string &c : found) {
    size_t i = 0;
    while (i < common.size() && i < c.size() && common[i] == c[i]) ++i;
    common.resize(i);
  }
  if (found.size() == 1) {
    std::string rest = common.substr(word.size());
    if (common.back() != '=') rest += ' ';
    el_insertstr(el, rest.c_str());
    return CC_REFRESH;
  }
  if (common.size() > word.size()) {
    el_insertstr(el, common.substr(word.size()).c_str());
    return CC_REFRESH;
  }
  size_t width = 0;
  for (const std::string &c : found) width = std::max(width, c.size());
  width += 2;
  size_t columns = std::max<size_t>(1, 80 / width), rows = (found.size() + columns - 1) / columns;
  std::string text = "\n";
  for (size_t r = 0; r < rows; ++r) {
    for (size_t c = 0; c < columns; ++c) {
      size_t i = c * rows + r;
      if (i >= found.size()) break;
      text += found[i];
      if (c + 1 < columns && (c + 1) * rows + r < found.size()) text.append(width - found[i].size(), ' ');
    }
    text += "\n";
  }
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
  return CC_REDISPLAY;
}

int run_interactive(cvcli::Console &console, const char *argv0, const Settings &s) {
  EditLine *el = el_init(argv0, stdin, stdout, stderr);
  if (el == nullptr) return run_script(console, stdin, "<stdin>", s);  // no line editing to be had
  History *hist = history_init();
  HistEvent ev;
  history(hist, &ev, H_SETSIZE, 1000);
  history(hist, &ev, H_SETUNIQUE, 1);
  if (s.history) history(hist, &ev, H_LOAD, s.history);
  el_set(el, EL_CLIENTDATA, static_cast<void *>(&console));
  el_set(el, EL_PROMPT, prompt);
  el_set(el, EL_EDITOR, "emacs");
  el_set(el, EL_HIST, history, hist);
  // By the wide form, whose names libedit keeps as given (the narrow form copies them and never
  // frees the copies).
  el_wset(el, EL_ADDFN, L"cv-complete", L"Complete a command, table, action, field or parameter name", complete);
  el_set(el, EL_BIND, "^I", "cv-complete", nullptr);
  el_source(el, nullptr);  // the user's ~/.editrc, if any

  std::fputs("corvin_switch console on the driver model: 'help' lists the commands, Tab completes.\n", stdout);
  std::string out, err;
  int count = 0;
  const char *line;
  while ((line = el_gets(el, &count)) != nullptr && count > 0) {
    std::string text(line, size_t(count));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (text.find_first_not_of(" \t") != std::string::npos) history(hist, &ev, H_ENTER, text.c_str());
    if (!console.execute(text, out, err)) {
      write_out(out);
      std::fflush(stdout);
      std::fprintf(stderr, "%s\n", err.c_str());
      std::fflush(stderr);
    }
    write_out(out);
    std::fflush(stdout);
    if (console.finished()) break;
  }
  if (!console.finished()) std::fputs("\n", stdout);
  if (s.history) history(hist, &ev, H_SAVE, s.history);
  el_end(el);
  history_end(hist);
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  Settings s;
  for (int i = 1; i < argc; ++i) {
    std::string_view a = argv[i];
    if (a == "--keep-going" || a == "-k") {
      s.keep_going = true;
    } else if (a == "--echo" || a == "-e") {
      s.echo = true;
    } else if (a == "--no-record") {
      s.record = false;
    } else if (a == "--history" && i + 1 < argc) {
      s.history = argv[++i];
    } else if (a == "--help" || a == "-h") {
      usage(stdout);
      return 0;
    } else if ((a.empty() || a[0] != '-' || a == "-") && !s.script) {
      s.script = argv[i];
    } else {
      std::fprintf(stderr, "corvin_switch_cli: unknown argument '%s'\n", argv[i]);
      usage(stderr);
      return 2;
    }
  }

  // The device: the driver model, with the library started on it.
  drvm_reset();
  drvm_set_recording(s.record ? 1 : 0);
  cvcli::prepare_model(cvcli::catalog());
  p4_pd_corvin_switch_init();
  if (bf_drv_hdl == 0) {
    std::fputs("corvin_switch_cli: the library did not register with the driver\n", stderr);
    return 1;
  }
  cvcli::Options options;
  options.recording = s.record;
  cvcli::Console console(options);
  drvm_clear_calls();  // model_calls starts from the first command

  int status;
  if (s.script && std::strcmp(s.script, "-") != 0) {
    FILE *f = std::fopen(s.script, "r");
    if (!f) {
      std::fprintf(stderr, "corvin_switch_cli: cannot read %s: %s\n", s.script, std::strerror(errno));
      return 2;
    }
    status = run_script(console, f, s.script, s);
    std::fclose(f);
  } else if (s.script || !isatty(STDIN_FILENO)) {
    status = run_script(console, stdin, "<stdin>", s);
  } else {
    status = run_interactive(console, argv[0], s);
  }
  p4_pd_corvin_switch_cleanup();
  return status;
}
