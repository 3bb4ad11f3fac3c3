// The preview page: two editors, and what the module makes of them, sent by the server after
// every change. Every request carries the token of the page's own URL.
"use strict";
(function () {
  const token = new URLSearchParams(location.search).get("token") || "";
  const $ = (selector, root) => (root || document).querySelector(selector);
  const files = {};  // "config" and "scenario": see open()
  const runsBox = $("#runs");
  let rowLines = [];  // the line each configuration row starts on, of the results shown
  let editedAt = 0;  // when the change being previewed was typed; 0 before the first
  let shown = false;  // whether the results on the page come from a preview that worked

  // A value longer than this is drawn cut to its first HEAD characters, the rest on demand; a
  // list, to its first values up to LIMIT characters or VALUES values.
  const LIMIT = 2000;
  const HEAD = 1000;
  const VALUES = 100;

  // Answers as {status, json, received}: when the answer was in, before it was read. A body that
  // is no JSON (a proxy's page, a cut answer) becomes {error}. Rejects only when the server does
  // not answer at all.
  function call(path, init) {
    init = init || {};
    init.headers = Object.assign({ "X-Formatv2-Token": token }, init.headers);
    return fetch(path, init).then((r) => r.text().then((text) => {
      const received = performance.now();
      let json;
      try {
        json = JSON.parse(text);
      } catch (e) {
        json = { error: "HTTP " + r.status + (text ? ": " + text.slice(0, 200) : "") };
      }
      return { status: r.status, json, received };
    }));
  }

  function element(tag, className, text) {
    const e = document.createElement(tag);
    if (className) e.className = className;
    if (text !== undefined) e.textContent = text;
    return e;
  }

  // UTF-8 bytes of a text as the runner's reports write it: a lone surrogate \udcXX stands for
  // the one byte XX of no UTF-8 character; any other lone surrogate would be sent as U+FFFD.
  function byteLength(text) {
    const ascii = text.length < 64 ? 0 : text.search(/[^\0-\x7f]/);  // a long ASCII text at once
    if (ascii < 0) return text.length;
    let n = ascii;
    const length = text.length;
    for (let i = ascii; i < length; i++) {
      const c = text.charCodeAt(i);
      if (c < 0x80) n += 1;
      else if (c < 0x800) n += 2;
      else if (c >= 0xd800 && c <= 0xdbff && i + 1 < length &&
               (text.charCodeAt(i + 1) & 0xfc00) === 0xdc00) { n += 4; i++; }
      else if (c >= 0xdc80 && c <= 0xdcff) n += 1;
      else n += 3;
    }
    return n;
  }

  // Characters a reader cannot see or tell apart, each drawn as a labelled box: control
  // characters, no-break and zero-width spaces, the byte order mark, line and paragraph
  // separators, other format characters, lone surrogates; and spaces that end a value or a line.
  const hidden = /[\0-\x1f\x7f-\x9f\xa0\xad\u034f\u061c\u115f\u1160\u17b4\u17b5\u180b-\u180e\u200b-\u200f\u2028-\u202e\u2060-\u206f\u3164\ufe00-\ufe0f\ufeff\uffa0\ufff0-\ufffb\ud800-\udfff]| +(?=[\r\n]|$)/gu;
  const names = { 0: "NUL", 9: "TAB", 10: "LF", 13: "CR", 0xa0: "NBSP", 0x200b: "ZWSP",
                  0xfeff: "BOM", 0x2028: "LSEP", 0x2029: "PSEP" };
  const titles = { 0xa0: "no-break space", 0x200b: "zero-width space", 0xfeff: "byte order mark",
                   0x2028: "line separator", 0x2029: "paragraph separator" };
  function hex(code, digits) { return code.toString(16).toUpperCase().padStart(digits, "0"); }
  function label(code) {
    if (code in names) return names[code];
    if (code < 0x20 || code === 0x7f) return "\\x" + hex(code, 2).toLowerCase();
    if (code >= 0xdc80 && code <= 0xdcff) return "\\x" + hex(code - 0xdc00, 2).toLowerCase();
    return "U+" + hex(code, 4);
  }

  // Draws text into the element: plain runs as text nodes, the characters above as boxes. When
  // the text is only the start of a value (end false), spaces at its end are not the value's end.
  function showBytes(text, into, end) {
    hidden.lastIndex = 0;
    let at = 0;
    for (let m = hidden.exec(text); m !== null; m = hidden.exec(text)) {
      const found = m[0];
      if (found[0] === " ") {
        if (!end && m.index + found.length === text.length) break;
        if (m.index > at) into.appendChild(document.createTextNode(text.slice(at, m.index)));
        const spaces = element("span", "trail", found);
        spaces.title = found.length === 1 ? "a space at the end" : found.length + " spaces at the end";
        into.appendChild(spaces);
        at = m.index + found.length;
        continue;
      }
      if (m.index > at) into.appendChild(document.createTextNode(text.slice(at, m.index)));
      const code = found.codePointAt(0);
      const box = element("span", "cc", label(code));
      box.title = titles[code] || (code >= 0xdc80 && code <= 0xdcff ? "a byte of no UTF-8 character"
                                                                  : "U+" + hex(code, 4));
      into.appendChild(box);
      if (code === 10) into.appendChild(document.createElement("br"));
      at = m.index + found.length;
    }
    if (at < text.length) into.appendChild(document.createTextNode(text.slice(at)));
    return into;
  }

  // Where a long text is cut: HEAD characters, not between the two halves of a surrogate pair.
  function cutAt(text) {
    const c = text.charCodeAt(HEAD - 1);
    return c >= 0xd800 && c <= 0xdbff ? HEAD - 1 : HEAD;
  }

  function moreButton(what) {
    const button = element("button", "more", what);
    button.type = "button";
    return button;
  }

  // Appends a value's bytes; a long one cut, with a button that draws the rest.
  function drawText(text, into) {
    if (text.length <= LIMIT) {
      showBytes(text, into, true);
      return;
    }
    const cut = cutAt(text);
    showBytes(text.slice(0, cut), into, false);
    const rest = text.slice(cut);
    const button = moreButton("… " + byteLength(rest) + " B more");
    button.rest = rest;
    into.appendChild(button);
  }

  // A value's bytes in a cell of their own. A row's cell is entered in the card's index of rows
  // (see light()).
  function bytesCell(text, row, card) {
    const cell = element("span", "bytes");
    drawText(text, cell);
    if (row !== undefined && row !== null) {
      cell.dataset.row = row;
      if (card) card.enter(row, cell);
    }
    return cell;
  }

  // Appends the values of a list from the k-th on, up to limit characters or count values; the
  // rest behind a button.
  function drawValues(into, values, k, limit, count) {
    let drawn = 0;
    for (const last = k + count; k < values.length && k < last && drawn <= limit; k++) {
      const text = String(values[k]);
      if (k > 0) into.appendChild(element("span", "sep", " · "));
      drawText(text, into);
      drawn += Math.min(text.length, LIMIT);
    }
    if (k < values.length) {
      let bytes = 0;
      for (let j = k; j < values.length; j++) bytes += byteLength(String(values[j]));
      const button = moreButton("… " + (values.length - k) + " more values, " + bytes + " B");
      button.values = { values, from: k };
      into.appendChild(button);
    }
  }

  // The rest behind a button, drawn where the button stood.
  function drawMore(button) {
    const into = button.parentNode;
    const rest = document.createDocumentFragment();
    if (button.rest !== undefined) {
      showBytes(button.rest, rest, true);
      button.replaceWith(rest);
    } else {
      button.remove();
      drawValues(into, button.values.values, button.values.from, Infinity, Infinity);
    }
  }

  // What a card of results lights when a row is pointed at: every element of each row.
  class Card {
    constructor(element) {
      this.element = element;
      this.rows = new Map();
      element.card = this;
    }
    enter(row, e) {
      const list = this.rows.get(+row);
      if (list) list.push(e); else this.rows.set(+row, [e]);
    }
  }
  let cards = [];  // the Card of each run shown
  const lit = { card: null, row: null, elements: [], line: null };

  // Lights a row's bytes, chips and lines: in one card (pointing), or in every card (the
  // editor's cursor); null lights nothing.
  function light(card, row) {
    if (lit.card === card && lit.row === row) return;
    for (const e of lit.elements) e.classList.remove("lit");
    lit.elements = [];
    const editor = files.config && files.config.editor;
    if (lit.line !== null && editor) editor.removeLineClass(lit.line, "background", "row-line");
    lit.line = null;
    lit.card = card;
    lit.row = row;
    if (row === null) return;
    for (const c of card ? [card] : cards) {
      for (const e of c.rows.get(row) || []) {
        e.classList.add("lit");
        lit.elements.push(e);
      }
    }
    if (card && editor && rowLines[row] != null && rowLines[row] <= editor.lineCount()) {
      lit.line = rowLines[row] - 1;
      editor.addLineClass(lit.line, "background", "row-line");
    }
  }

  runsBox.addEventListener("mouseover", (e) => {
    const article = e.target.closest(".run");
    const card = article && article.card;
    const at = card && e.target.closest("[data-row]");
    light(at ? card : null, at ? +at.dataset.row : null);
  });
  runsBox.addEventListener("mouseleave", () => light(null, null));
  runsBox.addEventListener("click", (e) => {
    const button = e.target.closest("button.more");
    if (button) drawMore(button);
  });

  // Expectations: each one's verdict, the ones that hold in a line; the failed ones with what was
  // expected, what came and where they first differ. A recorded run's are what it gave then.
  function expectations(list, recorded) {
    const ul = element("ul", "expect");
    for (const x of list) {
      const li = element("li", x.holds ? "holds" : "fails");
      li.appendChild(element("span", "mark", x.holds ? "✓" : "✗"));
      li.appendChild(element("b", "", x.what));
      if (x.holds) {
        li.title = "holds: " + String(x.expected).slice(0, 200);
      } else {
        const detail = element("div", "detail");
        detail.appendChild(element("span", "len", recorded ? "recorded " : "expected "));
        drawText(String(x.expected), detail.appendChild(element("span", "bytes")));
        detail.appendChild(element("br"));
        detail.appendChild(element("span", "len", recorded ? "now " : "actual "));
        if (x.actual === null || x.actual === undefined) detail.appendChild(element("i", "", "nothing"));
        else drawText(String(x.actual), detail.appendChild(element("span", "bytes")));
        if (x.difference) detail.appendChild(element("div", "difference", x.difference));
        li.appendChild(detail);
      }
      ul.appendChild(li);
    }
    return ul;
  }

  function summary(list, recorded) {
    const holding = list.filter((x) => x.holds).length;
    const all = holding === list.length;
    const text = !recorded ? "expectations: " + holding + " of " + list.length + " hold"
      : all ? "same as recorded" : "differs from recorded: " + (list.length - holding) + " of " + list.length;
    return element("span", "summary " + (all ? "holds" : "fails"), text);
  }

  // Failed expectations by what they are about, to mark the lines they are about.
  function failedBy(list) {
    const out = new Set();
    for (const x of list || []) if (!x.holds) out.add(x.what);
    return out;
  }

  // A line of a card's outputs: name, type, bytes and their count. The lines of about the first
  // one and a half screens are laid out at once; the ones further down only when they come into
  // view ("far", see page.css), placed until then by their height guessed from their characters:
  // a run of many long outputs draws at once.
  let guessedTop = 0;  // em, of the line about to be drawn, from the top of the results
  function outputLine(name, type, bytes, length, fails) {
    const line = element("div", fails ? "out fails" : "out");
    const height = (Math.ceil(bytes.textContent.length / 60) || 1) * 1.4 + 0.3;
    if (guessedTop > 1.5 * window.innerHeight / 14) {
      line.classList.add("far");
      line.style.containIntrinsicSize = "auto " + height.toFixed(1) + "em";
    }
    guessedTop += height;
    line.appendChild(element("span", "name", name));
    line.appendChild(element("span", "type", type));
    const value = element("span", "value");
    value.appendChild(bytes);
    line.appendChild(value);
    line.appendChild(element("span", "len", length));
    return line;
  }

  // The provenance entry of a value of an output ("show_text_en" and "show_text_cn" for the
  // display texts), or undefined.
  function spansOf(provenance, output, value) {
    return (provenance || []).find((p) => p.output === output && p.value === value);
  }

  // A text drawn cell by cell, each in a cell of the row (field, element) that wrote it, a
  // separator, suffix or blank with the cell it follows. Offsets are in bytes of the UTF-8 text.
  // A long text is drawn a row's bytes to a cell, each cut as drawText cuts a long text.
  const encoder = new TextEncoder();
  const decoder = new TextDecoder();
  function cellsOf(spans, byRow) {
    const cells = [];
    for (const s of spans) {
      const last = cells[cells.length - 1];
      if (last && last.row === s.row &&
          (byRow || s.element === null || (last.field === s.field && last.element === s.element))) {
        last.end = s.end;
      } else {
        cells.push({ ...s });
      }
    }
    return cells;
  }
  function spansCell(text, entry, card) {
    if (!entry || !entry.spans.length) return bytesCell(text);
    const long = text.length > LIMIT;
    const bytes = encoder.encode(text);
    const cells = element("span", "bytes");
    for (const s of cellsOf(entry.spans, long)) {
      const cell = bytesCell(decoder.decode(bytes.subarray(s.begin, s.end)), s.row, card);
      if (s.row !== null) {
        cell.title = "row " + s.row + (!long && s.field !== null ? ", field " + s.field : "") +
                     (!long && s.element !== null ? ", element " + s.element : "");
      }
      cells.appendChild(cell);
    }
    return cells;
  }

  function outputRow(output, rowOf, provenance, card, failed) {
    const values = output.values || [];
    let bytes = 0;
    let cells;
    const told = values.length === 1 && spansOf(provenance, output.name, 0);
    if (told) {
      cells = spansCell(String(values[0]), told, card);
    } else {
      cells = element("span", "bytes");
      drawValues(cells, values, 0, LIMIT, VALUES);
    }
    // An output of one row is that row's as a whole too.
    const row = rowOf.get(output.name);
    if (row !== undefined) {
      cells.dataset.row = row;
      card.enter(row, cells);
    }
    for (const v of values) if (typeof v === "string") bytes += byteLength(v);
    const strings = values.some((v) => typeof v === "string");
    return outputLine(output.name, output.type + (output.list ? " list" : ""), cells,
                      strings ? bytes + " B" : "", failed.has("outputs." + output.name));
  }

  // A run's card. A recorded run is named by its name or when it ran, and compared with what it
  // gave when recorded.
  function runCard(run, rows) {
    const article = element("article", "run");
    const card = new Card(article);
    const expect = run.expect || null;
    const failed = failedBy(expect);
    const recorded = run.recorded || null;
    const h = element("h2", "", recorded ? run.name : run.name ? "runs[" + run.index + '] "' + run.name + '"'
                                                               : "runs[" + run.index + "]");
    const verdict = element("span", "verdict " + run.verdict, run.verdict);
    if (failed.has("verdict")) verdict.classList.add("fails");
    h.appendChild(verdict);
    const status = element("span", "status", run.status_hex + " (" + run.status_meaning + ")");
    if (failed.has("status")) status.classList.add("fails");
    h.appendChild(status);
    if (expect && expect.length) h.appendChild(summary(expect, recorded));
    if (failed.size) article.classList.add("fails");
    article.appendChild(h);
    if (recorded && !recorded.same_config) {
      article.appendChild(element("p", "len", "recorded under another configuration than the one edited"));
    }
    const rowOf = new Map();
    rows.forEach((r, k) => { if (!rowOf.has(r.name)) rowOf.set(r.name, k); });
    const outputs = element("div", "outputs");
    for (const [label, key] of [["display EN", "show_text_en"], ["display CN", "show_text_cn"]]) {
      const text = run[key] || "";
      const cells = spansCell(text, spansOf(run.provenance, key, 0), card);
      outputs.appendChild(outputLine(label, "", cells, byteLength(text) + " B", failed.has(key)));
    }
    for (const output of run.outputs || []) {
      outputs.appendChild(outputRow(output, rowOf, run.provenance, card, failed));
    }
    article.appendChild(outputs);
    if (expect && expect.length) article.appendChild(expectations(expect, recorded));
    const chips = element("div", "rows");
    chips.appendChild(element("span", "len", "rows:"));
    rows.forEach((r, k) => {
      const chip = element("span", "", r.name || "row " + k);
      chip.dataset.row = k;
      card.enter(k, chip);
      chips.appendChild(chip);
    });
    article.appendChild(chips);
    if (run.failure) {
      const why = element("div", "why", run.failure.where + ": " + run.failure.message);
      if (run.failure.fix) why.appendChild(element("span", "fix", "fix: " + run.failure.fix));
      article.appendChild(why);
    }
    for (const line of run.log || []) {
      if (line.level === "Err") article.appendChild(element("div", "log", line.text.trimEnd()));
    }
    return card;
  }

  // A finding's underline: from its column to the end of the token it stands on.
  function span(editor, line, column) {
    const text = editor.getLine(line - 1) || "";
    const from = Math.max(0, column - 1);
    let to = from + 1;
    if (text[from] === '"') {
      to = text.indexOf('"', from + 1) + 1 || text.length;
    } else {
      while (to < text.length && !/[\s,:\]}]/.test(text[to])) to++;
    }
    return { from: CodeMirror.Pos(line - 1, from), to: CodeMirror.Pos(line - 1, Math.max(to, from + 1)) };
  }

  // The findings under the editor and as marks in it; redrawn only when they change.
  function showFindings(file, findings) {
    const key = JSON.stringify(findings);
    if (key === file.findings) return;
    file.findings = key;
    file.marks = [];
    const list = $(".diagnostics", file.box);
    list.textContent = "";
    for (const f of findings) {
      const li = element("li", f.severity);
      li.appendChild(document.createTextNode((f.line ? "line " + f.line + ", column " + f.column + ": " : "") +
                                             f.severity + ": " + f.message));
      if (f.fix) li.appendChild(element("span", "fix", "fix: " + f.fix));
      li.dataset.line = f.line || "";
      li.dataset.column = f.column || "";
      list.appendChild(li);
      if (f.line && f.line <= file.editor.lineCount()) {
        const at = span(file.editor, f.line, f.column);
        file.marks.push({ from: at.from, to: at.to, severity: f.severity,
                          message: f.message + (f.fix ? "\nfix: " + f.fix : "") });
      }
    }
    file.editor.performLint();
  }

  // Why an answer has no results worth showing, or null: a preview that failed, a scenario that
  // cannot be read, a configuration that is no JSON (mid-typing, every run fails for it).
  function problemOf(answer) {
    const problems = [];
    if (answer.error) problems.push(answer.error);
    const bad = answer.scenario_error;
    if (bad) problems.push((files.scenario ? files.scenario.name : "the scenario") + ": " + bad.message);
    if (answer.recording_error) problems.push("recording " + answer.recording_error.message);
    for (const r of (answer.check && answer.check.refusals) || []) {
      if (r.rule === "json-syntax") {
        problems.push(files.config.name + (r.line ? ", line " + r.line + ", column " + r.column : "") +
                      ": not valid JSON: " + r.message);
      }
    }
    return problems.length ? problems.join("\n") : null;
  }

  // What the recording shown holds: how many runs, how many shown (the newest, up to the cap),
  // how many give the same as recorded, and the parts of files that could not be read.
  function showRecording(recording, runs) {
    const note = $("#recording-note");
    note.textContent = "";
    if (!recording) return;
    const same = runs.filter((r) => (r.expect || []).every((x) => x.holds)).length;
    note.textContent = (recording.shown < recording.runs
      ? "the newest " + recording.shown + " of " + recording.runs + " runs (at most " + recording.cap + " are shown)"
      : recording.runs + (recording.runs === 1 ? " run" : " runs")) +
      ": " + same + " the same as recorded, " + (runs.length - same) + " differ";
    for (const s of recording.skipped) note.appendChild(element("span", "skipped", "skipped: " + s));
  }

  // Draws an answer: the findings always; the results only when the answer has them, else the
  // last results stay, dimmed, under the reason.
  function render(answer) {
    const report = answer.report || {};
    const check = answer.check || {};
    showFindings(files.config, [
      ...(check.refusals || []).map((r) => ({ line: r.line, column: r.column, severity: "error",
                                      message: r.message, fix: r.fix })),
      ...(check.warnings || []).map((w) => ({ line: w.line, column: w.column, severity: w.level,
                                      message: w.message, fix: w.fix })),
    ]);
    const bad = answer.scenario_error;
    const place = bad && /:(\d+):(\d+)$/.exec(bad.where);
    if (files.scenario) {
      showFindings(files.scenario, bad ? [{ line: place ? +place[1] : 0, column: place ? +place[2] : 0,
                                             severity: "error", message: bad.message }] : []);
    }
    const problem = problemOf(answer);
    const problemBox = $("#problem");
    problemBox.hidden = problem === null;
    problemBox.textContent = problem === null ? "" : problem + (shown ? "\n(the results below are from before)" : "");
    if (problem !== null && shown) {
      runsBox.classList.add("stale");
      return;
    }
    showRecording(answer.recording, report.runs || []);
    light(null, null);
    guessedTop = 0;
    const fragment = document.createDocumentFragment();
    const rows = answer.rows || [];
    const made = [];
    if (report.init) {
      const init = element("div", "init");
      const expect = report.init.expect || null;
      const p = element("p", "status", "configuration read: " + report.init.status_hex + " (" +
                        report.init.status_meaning + ")");
      if (expect && expect.length) p.appendChild(summary(expect));
      init.appendChild(p);
      if (expect && expect.length) init.appendChild(expectations(expect));
      if (failedBy(expect).size) init.classList.add("fails");
      fragment.appendChild(init);
    }
    for (const run of report.runs || []) {
      const card = runCard(run, rows);
      made.push(card);
      fragment.appendChild(card.element);
    }
    runsBox.replaceChildren(fragment);
    runsBox.classList.remove("stale");
    cards = made;
    rowLines = rows.map((r) => r.line);
    shown = problem === null;
  }

  // One preview at a time: a change made while one is on its way is previewed when it is back,
  // together with every other change made meanwhile. Shows the time from the change to its
  // preview drawn and laid out (from the page's start for the first), and the page's own share
  // of it; the body's data-* keep them, with the server's share, the page's scripts' and the
  // time to the frame that paints the preview.
  let busy = false;
  let again = false;
  let draws = 0;
  function textOf(file) {
    return file && !file.readonly ? file.editor.getValue() : null;
  }
  function update() {
    if (busy) { again = true; return; }
    busy = true;
    const started = editedAt || performance.now();
    const body = { config: textOf(files.config), scenario: textOf(files.scenario),
                   recording: $("#recording").value || null };
    const sent = performance.now();
    call("/api/preview", {
      method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(body),
    }).then(({ json, received }) => {
      if (again || json.superseded) return;  // a newer preview replaces this one
      render(json);
      const rendered = performance.now();
      void runsBox.offsetHeight;  // laid out now: the time below includes it
      const done = performance.now();
      const ms = Math.round(done - started);
      const pageMs = Math.round(done - received);
      Object.assign(document.body.dataset, {
        serverMs: Math.round(received - sent), renderMs: Math.round(rendered - received), pageMs,
        updateMs: ms,
      });
      const state = $("#state");
      state.className = json.error ? "failed" : "";
      state.textContent = json.error ? "the last run failed"
                                     : "updated in " + ms + " ms (the page's share " + pageMs + " ms)";
      // And once painted: after the next frame.
      const drawn = ++draws;
      requestAnimationFrame(() => setTimeout(() => {
        if (drawn === draws) document.body.dataset.paintedMs = Math.round(performance.now() - started);
      }, 0));
    }, () => {
      $("#state").className = "failed";
      $("#state").textContent = "the server does not answer";
    }).catch((e) => {
      $("#state").className = "failed";
      $("#state").textContent = "this answer could not be shown: " + e;
    }).finally(() => {
      busy = false;
      if (again) { again = false; update(); }
    });
  }

  function changed() {
    editedAt = performance.now();
    update();
  }

  // Unsaved edits: the editor's text differs from what was last loaded or saved.
  function modified(file) {
    return !file.readonly && !file.editor.isClean(file.clean);
  }
  function showModified(file) {
    $(".modified", file.box).hidden = !modified(file);
  }

  // Saves the editor's text byte for byte. The server refuses a file changed on disk since it
  // was loaded (409) and one whose permissions make it read-only (403 "readonly"): each is
  // written only when the user confirms. Any failure is told next to the file, whose text stays
  // as it is and stays modified.
  function save(file, flags) {
    const note = $(".saved", file.box);
    const button = $(".save", file.box);
    const say = (text, failed) => {
      note.textContent = text;
      note.classList.toggle("failed", !!failed);
    };
    const text = file.editor.getValue();
    const generation = file.editor.changeGeneration(true);
    const query = "name=" + encodeURIComponent(file.name) + "&version=" + encodeURIComponent(file.version) +
                  (flags.force ? "&force=1" : "") + (flags.unlock ? "&unlock=1" : "");
    button.disabled = true;
    say("saving…");
    return call("/api/save?" + query, {
      method: "POST", headers: { "Content-Type": "text/plain; charset=utf-8" }, body: text,
    }).then(({ status, json }) => {
      const why = json.error || "HTTP " + status;
      if (status === 200) {
        file.version = json.version;
        file.clean = generation;
        showModified(file);
        say("saved " + new Date().toLocaleTimeString() + "; the former content is in " + json.backup);
      } else if (status === 409) {
        if (confirm(why + ". Overwrite it with the text here?")) {
          return save(file, Object.assign({}, flags, { force: true }));
        }
        say("not saved: " + why, true);
      } else if (status === 403 && json.readonly === true) {
        if (confirm(file.name + " is read-only. Overwrite it anyway?")) {
          return save(file, Object.assign({}, flags, { unlock: true }));
        }
        say("not saved: " + why, true);
      } else if (status === 413) {
        say("not saved: the text is larger than the server takes (" + why + ")", true);
      } else {
        say("not saved: " + why, true);
      }
      return undefined;
    }, () => {
      say("not saved: the server does not answer", true);
    }).finally(() => {
      button.disabled = !!file.readonly;
    });
  }

  // An editor for a file the server sent. One the editor cannot hold byte for byte (a NUL byte,
  // not UTF-8) comes without text and a reason: it stays read-only and empty, and is previewed
  // as it is on disk. Lines end at LF only, so a CR stays a character of the text.
  function open(key, served) {
    const box = $("#" + key + "-file");
    if (!served) { box.hidden = true; return; }
    const file = { name: served.name, version: served.version, box, marks: [],
                   readonly: served.readonly || null };
    $(".name", box).textContent = served.name;
    file.editor = CodeMirror($(".editor", box), {
      value: file.readonly ? "" : served.text || "", mode: { name: "javascript", json: true },
      lineNumbers: true, lineSeparator: "\n", readOnly: !!file.readonly,
      specialChars: /[\u0000-\u001f\u007f-\u00a0\u00ad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\ufff9-\ufffc]/,
      gutters: ["CodeMirror-lint-markers"],
      lint: { getAnnotations: () => file.marks, lintOnChange: false },
    });
    file.clean = file.editor.changeGeneration(true);
    const locked = $(".locked", box);
    if (file.readonly) {
      locked.hidden = false;
      locked.textContent = "read-only: " + file.readonly;
      box.classList.add("readonly");
      $(".save", box).disabled = true;
    } else if (served.writable === false) {
      locked.hidden = false;
      locked.className = "locked writable";
      locked.textContent = "write-protected on disk";
    }
    file.editor.on("change", () => {
      showModified(file);
      changed();
    });
    $(".save", box).addEventListener("click", () => save(file, {}));
    // A click on a finding goes to its place.
    $(".diagnostics", box).addEventListener("click", (e) => {
      const li = e.target.closest("li");
      if (!li) return;
      if (+li.dataset.line) file.editor.setCursor(+li.dataset.line - 1, Math.max(0, +li.dataset.column - 1));
      file.editor.focus();
    });
    files[key] = file;
  }

  window.addEventListener("beforeunload", (e) => {
    if (Object.values(files).some(modified)) {
      e.preventDefault();
      e.returnValue = "unsaved edits";  // what older browsers need to ask
    }
  });

  call("/api/files").then(({ status, json }) => {
    if (status !== 200) { $("#state").textContent = json.error; return; }
    $("#folder").textContent = json.dir;
    open("config", json.config);
    open("scenario", json.scenario);
    // The recording folders found under the folder served: choosing one plays its runs instead
    // of the scenario's.
    const choice = $("#recording");
    for (const name of json.recordings || []) {
      choice.appendChild(element("option", "", "recording " + (name === "." ? "in this folder" : name)))
        .value = name;
    }
    $("#source").hidden = !(json.recordings || []).length;
    choice.addEventListener("change", changed);
    files.config.editor.on("cursorActivity", (cm) => {
      const line = cm.getCursor().line + 1;
      let row = null;
      for (let k = 0; k < rowLines.length; k++) if (rowLines[k] != null && rowLines[k] <= line) row = k;
      light(null, row);
    });
    update();
  }, () => {
    $("#state").className = "failed";
    $("#state").textContent = "the server does not answer";
  });
})();
