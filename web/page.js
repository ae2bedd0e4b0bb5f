"use strict";

// The install page. It shows one section at a time, drawn from `state` by the function of its name in VIEWS, and puts
// text into the document as text alone. What it asks the machine stands in docs/web-install.md.

// What can be done with the disks. `status` is the word for install.cgi; recover.cgi takes none.
const WAYS = {
  install: {status: "not_install", erases: true, agree: "agree_erase", begin: "begin_erase"},
  reinstall: {status: "sys_crash", erases: true, agree: "agree_erase", begin: "begin_erase"},
  migrate: {status: "sys_migrat", erases: false, agree: "agree_keep", begin: "begin_migrate"},
  recover: {erases: false, agree: "agree_recover", begin: "begin_recover"},
};
// What each state of the disks offers, the best way first.
const OFFERS = {
  not_install: ["install"],
  sys_crash: ["reinstall"],
  sys_recoverable: ["recover", "install"],
  sys_migrat: ["migrate", "install"],
};
// Where the system comes from, and the stages that an install from there goes through.
const ROADS = {
  upload: ["format_sys", "upload", "install"],
  download: ["format_sys", "download_rss", "download", "install"],
  builtin: ["chk_boot", "format_sys", "install"],
};
const ROAD_OF_STAGE = {upload: "upload", download_rss: "download", download: "download", chk_boot: "builtin"};

// The values go into a script of the new system as they are, so what a shell would take for more than text is refused.
const FIELDS = {
  hostname: {right: /^[a-z0-9]([a-z0-9-]{0,61}[a-z0-9])?$/i, wrong: "wrong_hostname"},
  account: {right: /^[a-z][a-z0-9._-]{0,31}$/i, wrong: "wrong_account"},
  password: {right: /^(?! )[ !#%-[\]^_a-~]{8,64}$(?<! )/, wrong: "wrong_password", secret: true},
  manual_ip: {right: is_address, wrong: "wrong_address"},
  manual_mask: {right: is_mask, wrong: "wrong_mask"},
  manual_gateway: {right: is_neighbour, wrong: "wrong_gateway"},
  manual_dns: {right: is_address, wrong: "wrong_address"},
  ppp_account: {right: /^[a-z0-9@._+=:,/%][a-z0-9@._+=:,/%-]{0,63}$/i, wrong: "wrong_ppp"},
  ppp_passwd: {right: /^[a-z0-9@._+=:,/%][a-z0-9@._+=:,/%-]{0,63}$/i, wrong: "wrong_ppp", secret: true},
};
const NETWORK_FIELDS = {
  dhcp: [],
  manual: ["manual_ip", "manual_mask", "manual_gateway", "manual_dns"],
  pppoe: ["ppp_account", "ppp_passwd"],
};

const POLL_MS = Number(document.body.dataset.pollMs);
const HIDDEN_POLL_MS = 10000;
const NEWS_SECONDS = 8;
const ANSWER_SECONDS = 20;
const LONG_SECONDS = 3600; // for an answer that waits for the disks
const STORE = "norv-install";

const state = {
  turn: 0, // a loop ends when another has begun
  view: "",
  machine: null, // the answer of machine.cgi
  way: "",
  road: "",
  version: "", // what the update server offers; "" not asked, "?" asked, "-" none
  address: "", // where the new system will be, when that is known
  request: "", // our own order: "open" until it is answered, then "taken" or "lost"; "" when it is another's install
  before: "", // the progress file as it was before the order
  was_busy: false, // whether the machine was seen at work since
  seen: [], // stages, in their order
  sent: null, // percent of the file, as the browser counts it
  told: null, // percent of the present stage, when the machine tells it
  heard: null, // the time of the last answer
  silent: false,
  outcome: "", // "installed", "recover", "flags"
  host: "", // of the new system
  error: null, // {sec, key, line} of the machine; {key} of the page's own
  restart: "", // "asked", "waiting", "back", "refused"
};
let texts = TEXTS.enu;

const el = (id) => document.getElementById(id);
const all = (selector) => document.querySelectorAll(selector);

function said(key, values = {}) {
  return texts[key].replace(/\{(\w+)\}/g, (_, name) => values[name] ?? "");
}

function put(id, text) { // only what changes, since a live region is read out again
  if (el(id).textContent !== text)
    el(id).textContent = text;
}

function make(tag, text, name = "") {
  const made = document.createElement(tag);
  made.textContent = text;
  made.className = name;
  return made;
}

function bytes_text(bytes) {
  const units = ["byte", "kilobyte", "megabyte", "gigabyte", "terabyte", "petabyte"];
  const step = bytes < 1 ? 0 : Math.min(Math.floor(Math.log10(bytes) / 3), units.length - 1);
  const form = {style: "unit", unit: units[step], maximumFractionDigits: step > 2 ? 1 : 0};
  return new Intl.NumberFormat(texts.tag, form).format(bytes / 1000 ** step);
}

const time_text = (time) => time.toLocaleTimeString(texts.tag);

function is_address(text) {
  return /^(0|[1-9]\d{0,2})(\.(0|[1-9]\d{0,2})){3}$/.test(text) && text.split(".").every((part) => Number(part) < 256);
}

const address_number = (text) => text.split(".").reduce((number, part) => number * 256 + Number(part), 0);

function is_mask(text) {
  return is_address(text) && /^1+0+$/.test(address_number(text).toString(2).padStart(32, "0"));
}

function is_neighbour(text) {
  const others = [el("manual_ip").value.trim(), el("manual_mask").value.trim()];
  if (!is_address(text) || !is_address(others[0]) || !is_mask(others[1]))
    return is_address(text);
  const mask = address_number(others[1]);
  return ((address_number(text) ^ address_number(others[0])) & mask) === 0;
}

// Asking the machine

class Refusal extends Error {} // the web server answers, and has nothing to say

// The answer's object; null when there is none, or none that can be read. Throws when the machine is silent.
async function ask(path, {seconds = ANSWER_SECONDS, ...options} = {}) {
  const answer = await fetch("/cgi-bin/" + path, {
    cache: "no-store", signal: AbortSignal.timeout(seconds * 1000), ...options,
  });
  if (!answer.ok)
    throw new Refusal(`${path}: ${answer.status}`);
  return parsed(await answer.text());
}

function parsed(text) {
  try {
    return JSON.parse(text);
  } catch {
    return null;
  }
}

const pause = (ms) => new Promise((go_on) => setTimeout(go_on, document.hidden ? Math.max(ms, HIDDEN_POLL_MS) : ms));

// How far the machine is. The lock is asked first: what the progress file says then is not older than the answer.
//   kind  "stage"; "quiet": at work, and has said nothing; "done"; "fault"; "gone": a stage, but nobody at work; "none"
async function news_get() {
  const lock = await ask("lock_check.cgi", {seconds: NEWS_SECONDS});
  const progress = await ask("progress.cgi", {seconds: NEWS_SECONDS});
  state.heard = new Date();
  const is_busy = lock?.success === false;
  const news = {is_busy, text: JSON.stringify(progress)};
  const data = progress?.data ?? {};
  if (progress === null)
    return {...news, kind: is_busy ? "quiet" : "none"};
  if (progress.success !== true)
    return {...news, kind: "fault", error: progress.errinfo};
  if (data.stage === "Success")
    return {...news, kind: "done", host: data.hostname};
  const percent = data.progress === undefined ? null : Number(data.progress);
  return {...news, kind: is_busy ? "stage" : "gone", stage: String(data.stage), percent};
}

// Finds out what the machine is at, and shows that. `afresh`: the outcome of an earlier install is not shown again.
async function look(afresh = false) {
  const turn = ++state.turn;
  unsee();
  show("wait");
  let abandoned = 0;
  for (;;) {
    try {
      const news = await news_get();
      if (turn !== state.turn)
        return;
      const is_ending = news.is_busy && (news.kind === "done" || news.kind === "fault"); // it clears up, and lets go
      if (news.is_busy && !is_ending)
        return follow();
      if (!afresh && news.kind === "done")
        return finish("installed", news.host);
      if (!afresh && news.kind === "fault")
        return fail(news.error);
      if (!afresh && news.kind === "gone" && ++abandoned === 2) // once may be between two of its steps
        return fail({key: "page_gone"});
      if (!is_ending && (afresh || news.kind === "none")) {
        await machine_get();
        if (turn !== state.turn)
          return;
        if (state.machine.status === "updating")
          return follow();
        if (state.machine.status === "mem_testing") {
          show("memory");
        } else {
          begin_choosing();
          return;
        }
      }
      el("wait-silent").hidden = true;
    } catch {
      el("wait-silent").hidden = false;
      put("wait-silent", said("wait_silent"));
    }
    await pause(state.view === "memory" ? 5 * POLL_MS : POLL_MS);
    if (turn !== state.turn)
      return;
  }
}

async function machine_get() {
  const machine = await ask("machine.cgi", {seconds: LONG_SECONDS});
  if (machine === null)
    throw new Refusal("machine.cgi");
  state.machine = machine;
  draw_frame();
}

// For the heading alone: nothing waits for it.
function machine_learn() {
  if (state.machine === null)
    machine_get().then(draw, () => {});
}

// Nothing is known of how far the machine is.
function unsee() {
  Object.assign(state, {was_busy: false, seen: [], sent: null, told: null, heard: null, silent: false});
}

// Watches an install, whoever began it, until it ends.
async function follow() {
  const turn = ++state.turn;
  show("work");
  machine_learn();
  for (let missed = 0, idle = 0; ;) {
    try {
      const news = await news_get();
      if (turn !== state.turn)
        return;
      missed = 0;
      idle = news_take(news) ? 0 : idle + 1;
    } catch {
      missed++;
    }
    if (turn !== state.turn)
      return;
    if (idle === 2)
      return follow_end();
    state.silent = missed > 2;
    draw();
    await pause(POLL_MS * Math.min(1 + missed, 5));
    if (turn !== state.turn)
      return;
  }
}

// Returns whether the machine is at work, or has told its result.
function news_take(news) {
  state.was_busy ||= news.is_busy;
  if (news.kind === "stage") {
    stage_take(news.stage, news.percent);
    return true;
  }
  if (news.kind === "quiet" || state.request === "open")
    return true; // while our order is under way, anything else is of an earlier install
  const is_old = state.request === "lost" && !state.was_busy && news.text === state.before;
  if (!is_old && news.kind === "fault") {
    fail(news.error);
    return true;
  }
  if (!is_old && news.kind === "done") {
    finish("installed", news.host);
    return true;
  }
  return false;
}

function stage_take(stage, percent) {
  state.told = percent;
  if (!state.seen.includes(stage))
    state.seen.push(stage);
  state.road = ROAD_OF_STAGE[stage] ?? state.road;
}

// Nobody is at work any more, and there is no result.
function follow_end() {
  if (state.request === "lost" && !state.was_busy)
    return fail({key: "page_lost"});
  if (state.seen.length > 0 || state.request === "taken")
    return fail({key: "page_gone"});
  return look(true); // a recovery leaves nothing behind but its effect
}

// The order

function fields_get() {
  const fields = {};
  for (const name of ["hostname", "account", "password"])
    if (value_of(name) !== "")
      fields[name] = value_of(name);
  fields.netconfig = chosen("netconfig");
  for (const name of NETWORK_FIELDS[fields.netconfig])
    fields[name] = value_of(name);
  if (state.road === "builtin")
    fields.buildin = "true";
  return fields;
}

async function begin() {
  ++state.turn;
  unsee();
  state.request = "open";
  state.address = state.way !== "recover" && chosen("netconfig") === "manual" ? value_of("manual_ip") : "";
  keep();
  show("work");
  try {
    const news = await news_get();
    if (news.is_busy)
      return fail({sec: "error", key: "error_apply_lock"});
    state.before = news.text;
  } catch {
    return fail({key: "page_silent"});
  }
  follow();
  const turn = state.turn;
  let answer = null;
  try {
    answer = await order();
  } catch {
    // It may have been taken all the same: what the machine says next decides.
  }
  if (turn !== state.turn)
    return;
  state.request = answer?.success === true ? "taken" : "lost";
  if (answer?.redirectIP && is_address(answer.redirectIP)) {
    state.address = answer.redirectIP;
    keep();
  }
  if (answer?.success === true && state.way === "recover")
    finish("recover", "");
  else if (answer?.success === false)
    fail(answer.errinfo);
}

function order() {
  const utctime = Math.floor(Date.now() / 1000);
  const post = (path, fields) => ask(path, {method: "POST", body: new URLSearchParams(fields), seconds: LONG_SECONDS});
  if (state.way === "recover")
    return post("recover.cgi", {utctime});
  const query = `install.cgi?status=${WAYS[state.way].status}&utctime=${utctime}`;
  return state.road === "upload" ? file_send(`${query}&upload=true`, fields_get()) : post(query, fields_get());
}

function file_send(path, fields) {
  return new Promise((taken, lost) => {
    const form = new FormData();
    for (const [name, value] of Object.entries(fields))
      form.append(name, value);
    form.append("filename", el("file").files[0], "upload.pat");
    const request = new XMLHttpRequest();
    request.open("POST", "/cgi-bin/" + path);
    request.upload.onprogress = (event) => {
      if (!event.lengthComputable)
        return;
      state.sent = Math.floor(event.loaded * 100 / event.total);
      draw();
    };
    request.onload = () => taken(parsed(request.responseText));
    request.onerror = lost;
    request.onabort = lost;
    request.send(form);
  });
}

function finish(outcome, host) {
  ++state.turn;
  Object.assign(state, {outcome, host: String(host ?? ""), request: "", restart: ""});
  show("done");
  machine_learn();
}

function fail(error) {
  ++state.turn;
  Object.assign(state, {error: error ?? {}, request: ""});
  show("fault");
  machine_learn();
}

async function restart() {
  const turn = ++state.turn;
  state.restart = "asked";
  draw();
  let was_away = false;
  for (let tries = 0; tries < 5 && state.restart === "asked"; tries++) { // the install may be about to let go
    try {
      const answer = await ask("restart.cgi", {method: "POST", headers: {"X-Install-Page": "1"}});
      if (answer?.success === true)
        state.restart = "waiting";
    } catch (why) {
      if (why instanceof Refusal)
        break;
      state.restart = "waiting"; // it is away already: the new system's own installer may restart it
      was_away = true;
    }
    if (state.restart === "asked")
      await pause(POLL_MS);
  }
  if (state.restart === "asked")
    state.restart = "refused";
  draw();
  while (turn === state.turn && state.restart === "waiting") {
    await pause(POLL_MS);
    const answers = await reaches(was_away ? new_system_url() : location.origin);
    if (answers && was_away)
      state.restart = "back";
    was_away ||= !answers;
    draw();
  }
}

function reaches(url) {
  const options = {mode: "no-cors", cache: "no-store", signal: AbortSignal.timeout(5000)};
  return fetch(url, options).then(() => true, () => false);
}

const new_system_url = () => state.address === "" ? location.origin + "/" : `http://${state.address}/`;

// What is needed after a reload, in this window alone.
function keep() {
  const {way, road, address} = state;
  try {
    sessionStorage.setItem(STORE, JSON.stringify({way, road, address}));
  } catch {
    // then a reload knows less
  }
}

function kept_get() {
  try {
    const kept = parsed(sessionStorage.getItem(STORE)) ?? {};
    state.way = kept.way in WAYS ? kept.way : "";
    state.road = kept.road in ROADS ? kept.road : "";
    state.address = is_address(String(kept.address)) ? kept.address : "";
  } catch {
    // as if it were the first time
  }
}

// Choosing

const chosen = (name) => document.querySelector(`input[name=${name}]:checked`)?.value ?? "";
const value_of = (name) => FIELDS[name].secret ? el(name).value : el(name).value.trim();
const is_known = (status) => Object.hasOwn(OFFERS, status);
const offers_get = () => is_known(state.machine.status) ? OFFERS[state.machine.status] : ["install"];

function begin_choosing() {
  Object.assign(state, {request: "", way: "", road: "", address: "", version: ""});
  keep();
  const offers = offers_get();
  if (!offers.includes(chosen("way")))
    document.querySelector(`input[name=way][value=${offers[0]}]`).checked = true;
  const {status, host} = state.machine;
  if (el("hostname").value === "" && status !== "sys_migrat" && FIELDS.hostname.right.test(host))
    el("hostname").value = host;
  choice_take();
  show("start");
}

function choice_take() {
  const way = chosen("way");
  const is_new_way = way !== state.way;
  state.way = way;
  state.road = way === "recover" ? "" : chosen("road");
  if (state.road === "download" && (is_new_way || state.version === ""))
    version_get();
  draw();
}

async function version_get() {
  const way = state.way;
  state.version = "?";
  draw();
  let version = "-";
  try {
    const query = `status=${WAYS[way].status}&utctime=${Math.floor(Date.now() / 1000)}`;
    const answer = await ask("version.cgi?" + query, {seconds: 120});
    version = answer?.data?.version || version;
  } catch {
    // none, then
  }
  if (way !== state.way)
    return; // asked anew for the other
  state.version = version;
  draw();
}

function fault_put(name, key) {
  put(name + "-fault", key === "" ? "" : said(key));
  el(name).setAttribute("aria-invalid", String(key !== ""));
  return key !== "";
}

function source_submit() {
  const file = el("file").files[0];
  const is_patch = /\.pat$/i.test(file?.name ?? "") && file.size > 0;
  if (state.road === "upload" && fault_put("file", is_patch ? "" : "wrong_file"))
    return el("file").focus();
  if (state.road === "download" && state.version.length < 2)
    return state.version === "?" ? undefined : version_get();
  if (state.way === "recover")
    consent_ask();
  else
    show("settings");
}

function values_submit() {
  const shown = ["hostname", "account", "password", ...NETWORK_FIELDS[chosen("netconfig")]];
  const has_account = value_of("account") + value_of("password") !== "";
  const may_be_empty = (name) => state.way === "migrate" &&
      (name === "hostname" || !has_account && (name === "account" || name === "password"));
  const wrong = shown.filter((name) => {
    const {right, wrong: key} = FIELDS[name];
    const value = value_of(name);
    const is_right = value === "" && may_be_empty(name) || (right.test ? right.test(value) : right(value));
    return fault_put(name, is_right ? "" : key);
  });
  if (wrong.length > 0)
    return el(wrong[0]).focus();
  consent_ask();
}

function consent_ask() {
  el("agreed").checked = false; // it may be of another choice
  put("agreed-fault", "");
  show("consent");
}

function agree_submit() {
  put("agreed-fault", el("agreed").checked ? "" : said("agree_first"));
  if (!el("agreed").checked)
    return el("agreed").focus();
  begin();
}

// Drawing

function disks_draw(list, mark) {
  el(list).replaceChildren(...state.machine.disks.map((disk) => {
    const item = make("li", "");
    const number = /^Internal HDD(\d+)$/.exec(disk.place);
    item.append(make("b", number === null ? disk.place : said("disk", {n: number[1]})),
                make("span", bytes_text(disk.bytes)), make("span", disk.product));
    if (mark !== undefined) {
      const key = mark(disk);
      item.classList.toggle("erased", key === "disk_erased");
      item.append(make("em", said(key)));
    }
    return item;
  }));
}

const file_text = (file) => said("from_upload", {file: file.name, size: bytes_text(file.size)});

function draw_start() {
  const {machine, way, road} = state;
  const known = is_known(machine.status);
  const is_empty = machine.status === "not_install" && machine.disks.length === 0;
  put("start-title", said(known ? "state_" + machine.status : "state_unknown"));
  const lead = [said(known ? `state_${machine.status}_lead` : "state_unknown_lead")];
  const found = parsed(machine.found);
  if (found !== null)
    lead.push(said("found", {model: String(found.model), version: String(found.version)}));
  put("start-lead", is_empty ? said("no_disks") : lead.join(" "));
  disks_draw("start-disks");
  el("source").hidden = is_empty;
  const offers = offers_get();
  el("ways").hidden = offers.length === 1;
  for (const input of all("input[name=way]"))
    input.parentElement.hidden = !offers.includes(input.value);
  el("roads").hidden = way === "recover";
  for (const under of all("#roads .under"))
    under.hidden = under.dataset.under !== road;
  const file = el("file").files[0];
  put("file-name", file === undefined ? said("file_drop") : file_text(file));
  el("file").parentElement.classList.toggle("filled", file !== undefined);
  const {version} = state;
  put("version", version === "" ? "" : version === "?" ? said("version_busy")
      : version === "-" ? said("version_none") : said("version_is", {version}));
  el("version").classList.toggle("busy", version === "?");
  el("version-again").hidden = version !== "-";
  el("flags").hidden = machine.status !== "sys_crash";
}

function draw_settings() {
  put("settings-lead", said(state.way === "migrate" ? "settings_lead_migrate" : "settings_lead"));
  for (const under of all("#values .under"))
    under.hidden = under.dataset.under !== chosen("netconfig");
}

function draw_consent() {
  const {way, road, machine} = state;
  const {erases, agree, begin: begin_key} = WAYS[way];
  const is_erased = (disk) => disk.erased || !is_known(machine.status);
  const mark = (disk) => !erases ? "disk_stays" : is_erased(disk) ? "disk_erased" : "disk_kept";
  const marks = machine.disks.map(mark);
  put("consent-title", said(!erases ? "consent_keep" : marks.includes("disk_kept") && !marks.includes("disk_erased")
                            ? "consent_system" : "consent_erase"));
  const lead = !erases ? way : road === "builtin" ? road : "erase";
  put("consent-lead", said(`consent_${lead}_lead`));
  disks_draw("consent-disks", mark);
  el("consent-disks").hidden = way === "recover";
  put("consent-kept", marks.includes("disk_kept") ? said("consent_kept", {mark: said("disk_kept")}) : "");
  put("agreed-text", said(agree));
  put("begin", said(begin_key));
  el("begin").classList.toggle("grave", erases);
  const rows = [];
  if (way !== "recover") {
    const fields = fields_get();
    const from = road === "upload" ? file_text(el("file").files[0]) : said("from_" + road, {version: state.version});
    rows.push([said("from"), from],
              [said("hostname"), fields.hostname ?? said("keep")], [said("account"), fields.account ?? said("keep")],
              [said("network"), said("net_" + fields.netconfig) + (fields.manual_ip ? `: ${fields.manual_ip}` : "")]);
  }
  el("summary").hidden = rows.length === 0;
  el("summary").replaceChildren(...rows.map(([name, value]) => {
    const row = make("div", "");
    row.append(make("dt", name), make("dd", value));
    return row;
  }));
}

let stages_drawn = "";

function stages_draw(stages, now) {
  const key = JSON.stringify([texts.tag, stages, now]);
  if (key !== stages_drawn) { // anew only when it changes, or the turning sign would jump
    stages_drawn = key;
    el("stages").replaceChildren(...stages.map((stage, at) => {
      const item = make("li", stage_text(stage), at < now ? "past" : at === now ? "now" : "");
      if (at < now)
        item.append(make("i", ""));
      if (at === now)
        item.setAttribute("aria-current", "step");
      return item;
    }));
  }
  const percent = state.request === "open" && stages[now] === "upload" ? state.sent : state.told;
  let meter = document.querySelector(".meter");
  if (percent === null || now < 0) {
    meter?.remove();
    return;
  }
  if (meter === null) {
    meter = make("div", "", "meter");
    meter.append(document.createElement("progress"), make("span", ""));
    meter.firstChild.max = 100;
    el("stages").children[now].append(meter);
  }
  meter.firstChild.value = percent;
  meter.firstChild.setAttribute("aria-label", stage_text(stages[now]));
  meter.lastChild.textContent = new Intl.NumberFormat(texts.tag, {style: "percent"}).format(percent / 100);
}

function stage_text(stage) {
  return Object.hasOwn(texts, "stage_" + stage) ? said("stage_" + stage) : said("stage_other", {stage});
}

function draw_work() {
  const {way, road, seen, request} = state;
  const is_recovery = way === "recover" && seen.length === 0;
  const stage = seen.at(-1) ?? (is_recovery ? "recover" : "begin");
  const stages = ROADS[road]?.includes(stage) ? ROADS[road] : seen;
  put("work-title", said(is_recovery ? "work_recover" : "work_title"));
  put("stage", stage_text(stage));
  el("stage").classList.toggle("busy", seen.length === 0);
  el("stage").classList.toggle("unseen", seen.length > 0); // the list shows it
  stages_draw(stages, stages.indexOf(stage));
  put("work-hint", said(request === "open" && road === "upload" ? "work_stay" : "work_leave"));
  put("news", state.heard === null || state.silent ? "" : said("news", {time: time_text(state.heard)}));
  el("silent").hidden = !state.silent;
  if (!state.silent)
    return put("silent", "");
  const text = said("silent", {time: time_text(state.heard)});
  if (el("silent").firstChild?.textContent === text)
    return;
  el("silent").replaceChildren(make("span", text));
  const known = [state.address, ...state.machine?.addresses ?? []];
  const others = known.filter((one) => one !== "" && one !== location.hostname);
  if (others.length > 0)
    el("silent").append(make("p", said("silent_try")), links(others));
}

function links(addresses) {
  const list = make("ul", "", "addresses");
  for (const address of new Set(addresses)) {
    const link = make("a", `http://${address}/`);
    link.href = link.textContent;
    const item = make("li", "");
    item.append(link);
    list.append(item);
  }
  return list;
}

function draw_done() {
  const {outcome, host, address} = state;
  const is_install = outcome === "installed";
  const is_name = FIELDS.hostname.right.test(host);
  const title = !is_install ? "done_" + outcome : is_name ? "done_title" : "done_title_plain";
  put("done-title", said(title, {host}));
  put("done-lead", said(is_install ? "done_lead" : `done_${outcome}_lead`));
  const known = address !== "" ? [address] : [location.host, ...is_name ? [host] : []];
  el("done-addresses").replaceChildren(...is_install ? [make("li", said("found_at")), ...links(known).children] : []);
  if (is_install && address === "")
    el("done-addresses").append(make("li", said("found_dhcp"), "quiet"));
  const note = {asked: "restarting", waiting: "restarting", back: "restarted", refused: "restart_fault"}[state.restart];
  el("done-note").hidden = note === undefined;
  put("done-note", note === undefined ? "" : said(note));
  el("done-note").classList.toggle("busy", note === "restarting");
  el("restart").disabled = note === "restarting";
  el("restart").hidden = state.restart === "back";
  el("open").hidden = state.restart !== "back";
  el("open").href = new_system_url();
}

function draw_fault() {
  const {error} = state;
  const key = Object.hasOwn(texts.faults, error.key) ? error.key : "error_unknown";
  const [title, lead, advice] = texts.faults[key];
  put("fault-title", title);
  put("fault-lead", lead);
  put("fault-advice", advice.replace("{model}", state.machine?.model ?? ""));
  put("again", said(key === "error_apply_lock" ? "follow" : "start_over"));
  put("fault-words", [error.sec, error.key, error.line].filter((word) => word !== undefined).join(" / "));
}

function draw_memory() {
  const [done, all_steps] = state.machine.memory_test.split("/");
  put("memory-progress", all_steps === undefined ? "" : said("memory_progress", {done, all: all_steps}));
}

const VIEWS = {
  wait: () => {},
  start: draw_start,
  settings: draw_settings,
  consent: draw_consent,
  work: draw_work,
  done: draw_done,
  fault: draw_fault,
  memory: draw_memory,
};

const heading_of = (view) => document.querySelector(`#${view} h1`);

function draw() {
  VIEWS[state.view]();
  for (const step of all(".step"))
    step.hidden = state.way === "recover";
  document.title = [heading_of(state.view).textContent, state.machine?.model].filter(Boolean).join(" - ");
}

function draw_frame() {
  put("model", state.machine?.model || said("page_title"));
  put("host", state.machine?.host ?? "");
  const {version, addresses} = state.machine ?? {};
  put("about", version ? said("about", {version, addresses: addresses.join(", ")}) : "");
}

function show(view) {
  const is_new = view !== state.view;
  state.view = view;
  draw();
  for (const section of all("main > section"))
    section.hidden = section.id !== view;
  if (!is_new)
    return;
  scrollTo(0, 0);
  heading_of(view).focus({preventScroll: true});
}

function speak(code) {
  texts = TEXTS[code] ?? TEXTS.enu;
  document.documentElement.lang = texts.tag;
  for (const node of all("[data-text]"))
    node.textContent = said(node.dataset.text);
  for (const node of all("[data-step]"))
    node.textContent = said("step", {n: node.dataset.step});
  for (const node of all(".fault"))
    node.textContent = ""; // in the other language; it comes again
  draw_frame();
  draw();
}

// The beginning

async function button_ask(path, answer_take) {
  let answer = null;
  try {
    answer = await ask(path, {method: "POST", seconds: 120});
  } catch {
    // the same as a refusal
  }
  answer_take(answer?.success === true);
}

function listen() {
  const submits = {source: source_submit, values: values_submit, agree: agree_submit};
  for (const [id, take] of Object.entries(submits))
    el(id).addEventListener("submit", (event) => {
      event.preventDefault();
      take();
    });
  el("source").addEventListener("change", choice_take);
  el("values").addEventListener("change", draw);
  el("file").addEventListener("change", () => fault_put("file", ""));
  el("version-again").addEventListener("click", version_get);
  for (const button of all(".back"))
    button.addEventListener("click", () =>
      show(state.view === "consent" && state.way !== "recover" ? "settings" : "start"));
  el("reveal").addEventListener("click", () => {
    const is_shown = el("password").type === "password";
    el("password").type = is_shown ? "text" : "password";
    el("reveal").setAttribute("aria-pressed", String(is_shown));
  });
  el("again").addEventListener("click", () => {
    if (state.error.key !== "error_apply_lock")
      return look(true);
    state.road = ""; // it is another's
    follow();
  });
  el("restart").addEventListener("click", restart);
  el("flags-clear").addEventListener("click", () => button_ask("clean_button_flags.cgi", (is_done) =>
    is_done ? finish("flags", "") : put("flags-fault", said("flags_fault"))));
  el("shell").addEventListener("click", () => button_ask("start_telnet.cgi", (is_done) =>
    put("shell-answer", is_done ? said("shell_open", {address: location.hostname}) : said("shell_fault"))));
  el("language").addEventListener("change", () => speak(el("language").value));
  addEventListener("beforeunload", (event) => {
    if (state.request === "open" && state.road === "upload")
      event.preventDefault();
  });
}

async function start() {
  if (self !== top)
    return; // within another's page, a click could be led to where the person does not see it
  kept_get();
  for (const [code, {name}] of Object.entries(TEXTS))
    el("language").add(new Option(name, code));
  listen();
  show("wait");
  speak("enu");
  try {
    const code = (await ask("session.cgi"))?.lang;
    if (Object.hasOwn(TEXTS, code))
      speak(el("language").value = code);
  } catch {
    // English, until somebody chooses
  }
  look();
}

start();
