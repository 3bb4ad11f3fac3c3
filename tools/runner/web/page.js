// The preview page: two editors, and what the module makes of them, sent by the server after
// every change. Every request carries the token of the page's own URL.
"use strict";
(function () {
  const token = new URLSearchParams(location.search).get("token") || "";
  const $ = (selector, root) => (root || document).querySelector(selector);
  const files = {};  // "config" and "scenario": {name, version, editor, box, marks}
  let rowLines = [];  // the line each configuration row starts on
  let litLine = null;
  let editedAt = 0;  // when the change being previewed was typed; 0 before the first

  function call(path, body) {
    const init = { headers: { "X-Formatv2-Token": token } };
    if (body !== undefined) {
      init.method = "POST";
      init.headers["Content-Type"] = "application/json";
      init.body = JSON.stringify(body);
    }
    return fetch(path, init).then((r) => r.json().then((json) => ({ status: r.status, json })));
  }

  function element(tag, className, text) {
    const e = document.createElement(tag);
    if (className) e.className = className;
    if (text !== undefined) e.textContent = text;
    return e;
  }

  // Bytes as they are, control characters as labelled boxes; a lone surrogate \udcXX is a byte
  // of no UTF-8 character, as the runner's reports write it.
  const names = { 0: "NUL", 9: "TAB", 10: "LF", 13: "CR" };
  function showBytes(text, into) {
    let plain = "";
    const flush = () => { if (plain) into.appendChild(document.createTextNode(plain)); plain = ""; };
    for (const ch of text) {
      const code = ch.codePointAt(0);
      let label = null;
      if (code in names) label = names[code];
      else if (code < 32 || code === 127) label = "\\x" + code.toString(16).padStart(2, "0");
      else if (code >= 0xdc80 && code <= 0xdcff) label = "\\x" + (code - 0xdc00).toString(16);
      if (label === null) { plain += ch; continue; }
      flush();
      into.appendChild(element("span", "cc", label));
      if (code === 10) into.appendChild(document.createElement("br"));
    }
    flush();
    return into;
  }

  function byteLength(text) {
    let n = 0;
    for (const ch of text) {
      const code = ch.codePointAt(0);
      n += code >= 0xdc80 && code <= 0xdcff ? 1 : new TextEncoder().encode(ch).length;
    }
    return n;
  }

  function bytesCell(text, row) {
    const cell = element("span", "bytes");
    showBytes(text, cell);
    if (row !== undefined) cell.dataset.row = row;
    return cell;
  }

  // Pointing at a row (its chip, its bytes or its line in the editor) lights all of them.
  function light(card, row) {
    for (const e of document.querySelectorAll("[data-row].lit")) e.classList.remove("lit");
    const editor = files.config.editor;
    if (litLine !== null) editor.removeLineClass(litLine, "background", "row-line");
    litLine = null;
    if (row === null) return;
    for (const e of card.querySelectorAll('[data-row="' + row + '"]')) e.classList.add("lit");
    if (rowLines[row] != null) {
      litLine = rowLines[row] - 1;
      editor.addLineClass(litLine, "background", "row-line");
    }
  }

  function outputRow(output, rowOf, provenance) {
    const tr = element("tr");
    tr.appendChild(element("th", "", output.name));
    tr.appendChild(element("td", "", output.type + (output.list ? " list" : "")));
    const td = element("td");
    const values = output.values;
    let bytes = 0;
    if (provenance && provenance.output === output.name) {
      for (const piece of provenance.pieces) {
        td.appendChild(bytesCell(piece.text, piece.row));
        bytes += byteLength(piece.text);
      }
    } else {
      // One output per row: the output is its row's.
      values.forEach((v, i) => {
        if (i > 0) td.appendChild(element("span", "len", " · "));
        td.appendChild(bytesCell(String(v), rowOf[output.name]));
        if (typeof v === "string") bytes += byteLength(v);
      });
    }
    tr.appendChild(td);
    const strings = values.some((v) => typeof v === "string");
    tr.appendChild(element("td", "len", strings ? bytes + " B" : ""));
    return tr;
  }

  function runCard(run, rows) {
    const card = element("article", "run");
    const h = element("h2", "", run.name ? "runs[" + run.index + '] "' + run.name + '"' : "runs[" + run.index + "]");
    h.appendChild(element("span", "verdict " + run.verdict, run.verdict));
    h.appendChild(element("span", "status", run.status_hex + " (" + run.status_meaning + ")"));
    card.appendChild(h);
    const rowOf = {};
    rows.forEach((r, k) => { rowOf[r.name] = k; });
    const table = element("table");
    for (const [label, key] of [["display EN", "show_text_en"], ["display CN", "show_text_cn"]]) {
      const tr = element("tr");
      tr.appendChild(element("th", "", label));
      const td = element("td");
      td.colSpan = 2;
      td.appendChild(bytesCell(run[key] || ""));
      tr.appendChild(td);
      tr.appendChild(element("td", "len", byteLength(run[key] || "") + " B"));
      table.appendChild(tr);
    }
    for (const output of run.outputs || []) table.appendChild(outputRow(output, rowOf, run.provenance));
    card.appendChild(table);
    const chips = element("div", "rows");
    chips.appendChild(element("span", "len", "rows:"));
    rows.forEach((r, k) => {
      const chip = element("span", "", r.name || "row " + k);
      chip.dataset.row = k;
      chips.appendChild(chip);
    });
    card.appendChild(chips);
    for (const line of run.log || []) {
      if (line.level === "Err") card.appendChild(element("div", "log", line.text.trimEnd()));
    }
    card.addEventListener("mouseover", (e) => {
      const at = e.target.closest("[data-row]");
      light(card, at ? at.dataset.row : null);
    });
    card.addEventListener("mouseleave", () => light(card, null));
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

  function showFindings(file, findings) {
    file.marks = [];
    const list = $(".diagnostics", file.box);
    list.textContent = "";
    for (const f of findings) {
      const li = element("li", f.severity);
      li.appendChild(document.createTextNode((f.line ? "line " + f.line + ", column " + f.column + ": " : "") +
                                             f.severity + ": " + f.message));
      if (f.fix) li.appendChild(element("span", "fix", "fix: " + f.fix));
      li.dataset.line = f.line || "";
      li.addEventListener("click", () => {
        if (f.line) file.editor.setCursor(f.line - 1, Math.max(0, f.column - 1));
        file.editor.focus();
      });
      list.appendChild(li);
      if (f.line) {
        const at = span(file.editor, f.line, f.column);
        file.marks.push({ from: at.from, to: at.to, severity: f.severity,
                          message: f.message + (f.fix ? "\nfix: " + f.fix : "") });
      }
    }
    file.editor.performLint();
  }

  function render(answer, started) {
    const results = $("#results");
    results.textContent = "";
    const report = answer.report || {};
    const check = answer.check || { refusals: [], warnings: [] };
    showFindings(files.config, [
      ...check.refusals.map((r) => ({ line: r.line, column: r.column, severity: "error",
                                      message: r.message, fix: r.fix })),
      ...check.warnings.map((w) => ({ line: w.line, column: w.column, severity: w.level,
                                      message: w.message, fix: w.fix })),
    ]);
    const bad = answer.scenario_error;
    const place = bad && /:(\d+):(\d+)$/.exec(bad.where);
    if (files.scenario) {
      showFindings(files.scenario, bad ? [{ line: place ? +place[1] : 0, column: place ? +place[2] : 0,
                                             severity: "error", message: bad.message }] : []);
    }
    if (answer.error) results.appendChild(element("p", "problem", answer.error));
    if (report.init) {
      const init = element("p", "status", "configuration read: " + report.init.status_hex + " (" +
                           report.init.status_meaning + ")");
      results.appendChild(init);
    }
    rowLines = (answer.rows || []).map((r) => r.line);
    for (const run of report.runs || []) results.appendChild(runCard(run, answer.rows || []));
    const ms = Math.round(performance.now() - started);
    document.body.dataset.updateMs = ms;
    const state = $("#state");
    state.className = answer.error ? "failed" : "";
    state.textContent = answer.error ? "the last run failed" : "updated in " + ms + " ms";
  }

  // One preview at a time: a change made while one is on its way is previewed when it is back,
  // together with every other change made meanwhile. Shows the time from the change to its
  // preview (from the page's start for the first).
  let busy = false;
  let again = false;
  function update() {
    if (busy) { again = true; return; }
    busy = true;
    const started = editedAt || performance.now();
    const body = { config: files.config.editor.getValue() };
    if (files.scenario) body.scenario = files.scenario.editor.getValue();
    call("/api/preview", body).then(({ json }) => {
      if (!again) render(json, started);
    }, (e) => {
      $("#state").className = "failed";
      $("#state").textContent = "the server did not answer: " + e;
    }).finally(() => {
      busy = false;
      if (again) { again = false; update(); }
    });
  }

  function changed() {
    editedAt = performance.now();
    update();
  }

  function save(file, force) {
    const saved = $(".saved", file.box);
    call("/api/save", { name: file.name, text: file.editor.getValue(), version: file.version, force })
      .then(({ status, json }) => {
        if (status === 200) {
          file.version = json.version;
          saved.textContent = "saved " + new Date().toLocaleTimeString() + "; the former content is in " + json.backup;
        } else if (status === 409 && confirm(json.error + ". Overwrite it with the text here?")) {
          save(file, true);
        } else {
          saved.textContent = "not saved: " + json.error;
        }
      });
  }

  function open(key, served) {
    const box = $("#" + key + "-file");
    if (!served) { box.hidden = true; return; }
    const file = { name: served.name, version: served.version, box, marks: [] };
    $(".name", box).textContent = served.name;
    file.editor = CodeMirror($(".editor", box), {
      value: served.text, mode: { name: "javascript", json: true }, lineNumbers: true,
      gutters: ["CodeMirror-lint-markers"], viewportMargin: Infinity,
      lint: { getAnnotations: () => file.marks, lintOnChange: false },
    });
    file.editor.on("change", changed);
    $(".save", box).addEventListener("click", () => save(file, false));
    files[key] = file;
  }

  call("/api/files").then(({ status, json }) => {
    if (status !== 200) { $("#state").textContent = json.error; return; }
    $("#folder").textContent = json.dir;
    open("config", json.config);
    open("scenario", json.scenario);
    files.config.editor.on("cursorActivity", (cm) => {
      const line = cm.getCursor().line + 1;
      let row = null;
      rowLines.forEach((l, k) => { if (l != null && l <= line) row = k; });
      document.querySelectorAll(".run").forEach((card) => {
        for (const e of card.querySelectorAll("[data-row].lit")) e.classList.remove("lit");
        if (row !== null) for (const e of card.querySelectorAll('[data-row="' + row + '"]')) e.classList.add("lit");
      });
    });
    update();
  });
})();
