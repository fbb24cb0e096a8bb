// What the console's pages share: the page's state, building the DOM, times in the site's zone,
// the API on the session, dialogs and notices, and the live stream with its banner. The frame
// (app.js) owns the login and the pages; this module knows neither.

export const app = {
  session: null,   // {name, scope, csrf}
  site: null,      // /api/v1/site
  holders: new Map(),  // cardholder id -> name, for the activity's look-ups
  canOperate() { return this.session && this.session.scope === 'operator'; },
};

// ---- DOM -----------------------------------------------------------------------------------

// h('div', {class: 'x', onclick: f}, 'text', child): text is always text, never markup.
export function h(tag, attrs, ...children) {
  const el = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs || {})) {
    if (v === null || v === undefined || v === false) continue;
    if (k.startsWith('on') && typeof v === 'function') el.addEventListener(k.slice(2), v);
    else if (k === 'class') el.className = v;
    else if (k === 'dataset') Object.assign(el.dataset, v);
    else if (v === true) el.setAttribute(k, '');
    else el.setAttribute(k, String(v));
  }
  append(el, children);
  return el;
}

function append(el, children) {
  for (const c of children) {
    if (c === null || c === undefined || c === false) continue;
    if (Array.isArray(c)) append(el, c);
    else el.append(c instanceof Node ? c : document.createTextNode(String(c)));
  }
}

// SVG elements for the charts and icons.
export function svg(tag, attrs, ...children) {
  const el = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [k, v] of Object.entries(attrs || {})) {
    if (v !== null && v !== undefined) el.setAttribute(k, String(v));
  }
  for (const c of children) if (c) el.append(c instanceof Node ? c : document.createTextNode(String(c)));
  return el;
}

export function clear(el) { while (el.firstChild) el.firstChild.remove(); return el; }

// ---- Times, in the site's zone --------------------------------------------------------------

let timeFormat = null;
let dateFormat = null;
function formats() {
  if (!timeFormat) {
    const zone = app.site ? app.site.time_zone : undefined;
    const base = { timeZone: zone, hour12: false };
    timeFormat = new Intl.DateTimeFormat('en-GB', { ...base, hour: '2-digit', minute: '2-digit', second: '2-digit' });
    dateFormat = new Intl.DateTimeFormat('en-GB', { ...base, year: 'numeric', month: 'short', day: '2-digit' });
  }
  return [timeFormat, dateFormat];
}

export function fmtTime(ms) {
  if (!ms) return '—';
  const [t, d] = formats();
  const today = d.format(new Date()) === d.format(new Date(ms));
  return today ? t.format(new Date(ms)) : `${d.format(new Date(ms))} ${t.format(new Date(ms))}`;
}

export function fmtFull(ms) {
  if (!ms) return '—';
  const [t, d] = formats();
  return `${d.format(new Date(ms))} ${t.format(new Date(ms))}`;
}

export function fmtAgo(ms) {
  if (!ms) return 'never';
  const s = Math.max(0, Math.round((Date.now() - ms) / 1000));
  if (s < 5) return 'just now';
  if (s < 60) return `${s} s ago`;
  if (s < 3600) return `${Math.floor(s / 60)} min ago`;
  if (s < 86400) return `${Math.floor(s / 3600)} h ${Math.floor((s % 3600) / 60)} min ago`;
  return fmtTime(ms);
}

export function plural(n, one, many) { return `${n} ${n === 1 ? one : (many || one + 's')}`; }

// ---- The API --------------------------------------------------------------------------------

export class ApiError extends Error {
  constructor(status, body, offline) {
    super(body && body.error ? body.error : offline ? 'the gateway can\'t be reached' : `status ${status}`);
    this.status = status;
    this.body = body || {};
    this.field = this.body.field || '';
    this.offline = !!offline;
  }
}

// fetch on the session: JSON both ways, the CSRF token on every change. A 401 ends the session
// in the page and leads back to the login; a network failure shows the banner.
export async function api(method, path, body, opts = {}) {
  const headers = { Accept: 'application/json' };
  if (body !== undefined) headers['Content-Type'] = 'application/json';
  if (method !== 'GET' && app.session && app.session.csrf) headers['X-CSRF-Token'] = app.session.csrf;
  let res;
  try {
    res = await fetch(path.startsWith('/') ? path : `/api/v1/${path}`, {
      method, headers, credentials: 'same-origin', cache: 'no-store',
      body: body === undefined ? (method === 'GET' ? undefined : '') : JSON.stringify(body),
    });
  } catch (e) {
    connection.failed();
    throw new ApiError(0, null, true);
  }
  connection.reached();
  let data = null;
  const text = await res.text();
  if (text) {
    try { data = JSON.parse(text); } catch (e) { data = { error: text.slice(0, 200) }; }
  }
  if (res.status === 401 && !opts.login) {
    session.ended('Your session has ended. Log in again.');
    throw new ApiError(401, data);
  }
  if (!res.ok) throw new ApiError(res.status, data);
  return data;
}

// ---- Notices ------------------------------------------------------------------------------

export function toast(text, kind = 'info') {
  const box = document.getElementById('toasts');
  const t = h('div', { class: `toast toast-${kind}`, role: kind === 'error' ? 'alert' : 'status' }, text);
  box.append(t);
  setTimeout(() => t.classList.add('toast-out'), 4200);
  setTimeout(() => t.remove(), 4700);
}

// A modal: {title, body (node), actions: [{label, kind, onclick(close) -> bool|Promise}]}.
export function openDialog({ title, body, actions = [], wide = false, onclose }) {
  const layer = document.getElementById('dialog-layer');
  const previous = document.activeElement;
  let closed = false;
  const close = () => {
    if (closed) return;
    closed = true;
    box.remove();
    if (!layer.children.length) layer.hidden = true;
    document.removeEventListener('keydown', onKey);
    if (onclose) onclose();
    if (previous && previous.focus) previous.focus();
  };
  const onKey = (e) => { if (e.key === 'Escape') close(); };
  const buttons = actions.map((a) => h('button', {
    type: 'button', class: a.kind || 'secondary', 'data-action': a.id || null,
    onclick: async (e) => {
      const b = e.currentTarget;
      b.disabled = true;
      try { if ((await a.onclick(close)) !== false) close(); } finally { b.disabled = false; }
    },
  }, a.label));
  const box = h('div', { class: `dialog${wide ? ' dialog-wide' : ''}`, role: 'dialog', 'aria-modal': 'true', 'aria-label': title },
    h('div', { class: 'dialog-head' }, h('h2', {}, title),
      h('button', { type: 'button', class: 'icon-button', 'aria-label': 'Close', onclick: close }, '×')),
    h('div', { class: 'dialog-body' }, body),
    buttons.length ? h('div', { class: 'dialog-actions' }, buttons) : null);
  layer.append(box);
  layer.hidden = false;
  document.addEventListener('keydown', onKey);
  const first = box.querySelector('input, select, textarea, button.primary');
  if (first) first.focus();
  return { close, box };
}

export function confirmDialog(title, text, okLabel, kind = 'primary') {
  return new Promise((resolve) => {
    let answered = false;
    openDialog({
      title,
      body: h('p', {}, text),
      actions: [
        { label: 'Cancel', kind: 'secondary', onclick: () => { answered = true; resolve(false); } },
        { label: okLabel, kind, id: 'confirm', onclick: () => { answered = true; resolve(true); } },
      ],
      onclose: () => { if (!answered) resolve(false); },
    });
  });
}

// Field errors: an element with data-field="name" gets the message in its .field-error.
// "cards[2].number" falls back to "cards[2]", then "cards", then the form's own slot.
export function showFieldError(form, field, message) {
  const parent = (f) => { const p = f.replace(/(\.[^.[\]]*|\[\d+\])$/, ''); return p === f ? '' : p; };
  let holder = null;
  for (let f = field; f && !holder; f = parent(f)) holder = form.querySelector(`[data-field="${CSS.escape(f)}"]`);
  holder = holder || form.querySelector('[data-field="_form"]');
  if (!holder) return false;
  holder.classList.add('has-error');
  const slot = holder.querySelector('.field-error') || holder;
  slot.textContent = message;
  return true;
}

export function clearFieldErrors(form) {
  for (const el of form.querySelectorAll('.has-error')) el.classList.remove('has-error');
  for (const el of form.querySelectorAll('.field-error')) el.textContent = '';
}

// ---- The connection: the live stream and the banner ---------------------------------------

const listeners = new Set();
const KINDS = ['event', 'alarm', 'lookup', 'door', 'pin', 'connect', 'disconnect', 'decision', 'audit'];

export const live = {
  lastId: 0,      // the last journal id the page has seen
  source: null,
  subscribe(fn) { listeners.add(fn); return () => listeners.delete(fn); },
};

const connection = {
  up: true,
  lostSince: 0,
  resumeFrom: 0,
  failed() {
    if (!this.up) return;
    this.up = false;
    this.lostSince = Date.now();
    this.resumeFrom = live.lastId;
    showBanner('The connection to the gateway is lost. Reconnecting…', 'lost');
    document.getElementById('live-dot').className = 'live-dot live-dot-lost';
  },
  reached() {
    if (this.up) return;
    // Back, but the page counts as connected again once the stream is.
    if (live.source && live.source.readyState === EventSource.OPEN) this.restored();
  },
  restored() {
    if (this.up) return;
    this.up = true;
    const away = Math.round((Date.now() - this.lostSince) / 1000);
    showBanner(`Reconnected after ${away} s: the live stream resumed after record #${this.resumeFrom}.`, 'ok');
    document.getElementById('live-dot').className = 'live-dot live-dot-up';
    setTimeout(() => { if (this.up) hideBanner(); }, 5000);
    window.dispatchEvent(new CustomEvent('zanthd-reconnected'));
  },
};

function showBanner(text, kind) {
  const b = document.getElementById('banner');
  b.textContent = text;
  b.className = `banner banner-${kind}`;
  b.dataset.state = kind;
  b.hidden = false;
}

function hideBanner() {
  const b = document.getElementById('banner');
  b.hidden = true;
  b.dataset.state = '';
}

function deliver(ev) {
  let record;
  try { record = JSON.parse(ev.data); } catch (e) { return; }
  if (record.id <= live.lastId) return;
  live.lastId = record.id;
  for (const fn of listeners) {
    try { fn(record); } catch (e) { console.error(e); }
  }
}

let retryTimer = null;

function openStream() {
  closeStream();
  // Resumes after the last record seen; the browser's own reconnections send Last-Event-ID.
  const es = new EventSource(`/api/v1/events/stream?after=${live.lastId}`);
  live.source = es;
  for (const k of KINDS) es.addEventListener(k, deliver);
  es.addEventListener('gone', () => {
    toast('The journal no longer holds every record since the last one seen; the stream goes on from the oldest kept.', 'error');
  });
  es.onopen = () => {
    document.getElementById('live-dot').className = 'live-dot live-dot-up';
    connection.restored();
  };
  es.onerror = () => {
    if (live.source !== es) return;
    connection.failed();
    if (es.readyState === EventSource.CLOSED) {
      // Refused (not merely cut): the session may have ended; otherwise try again.
      es.close();
      clearTimeout(retryTimer);
      retryTimer = setTimeout(async () => {
        try {
          await api('GET', 'session');
          if (app.session) openStream();
        } catch (e) {
          if (e.status !== 401 && app.session) retryTimer = setTimeout(() => app.session && openStream(), 2000);
        }
      }, 1000);
    }
  };
}

function closeStream() {
  clearTimeout(retryTimer);
  if (live.source) {
    live.source.close();
    live.source = null;
  }
}

export async function refreshHolders() {
  try {
    const list = await api('GET', 'cardholders');
    app.holders = new Map(list.cardholders.map((c) => [c.id, c.name]));
  } catch (e) { /* the names are a convenience */ }
}

// What the frame does when the gateway says the session has ended (a 401); set by app.js.
export const session = { ended: () => {} };

export function resetTimeFormats() { timeFormat = null; dateFormat = null; }

// The stream is opened and closed by the frame as the session starts and ends.
export { openStream, closeStream, hideBanner, connection };
