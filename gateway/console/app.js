// The site console's frame: the login, the session's start and end, and the pages. Every read
// and change goes through zanthd's REST API on the session the login opened; the page holds no
// rights of its own.

import { api, app, clear, closeStream, connection, hideBanner, live, openStream, refreshHolders, resetTimeFormats,
  session as sessionHooks } from './common.js';
import controllers from './controllers.js';
import activity from './activity.js';
import doors from './doors.js';
import cardholders from './cardholders.js';
import health from './health.js';

const pages = { controllers, activity, doors, cardholders, health };

// ---- Session --------------------------------------------------------------------------------

function showLogin(message) {
  document.getElementById('shell').hidden = true;
  document.getElementById('login').hidden = false;
  const err = document.getElementById('login-error');
  err.textContent = message || '';
  const token = document.getElementById('login-token');
  token.value = '';
  token.focus();
}

function sessionEnded(message) {
  if (!app.session) return;
  app.session = null;
  closeStream();
  unmountPage();
  closeDialogs();
  hideBanner();
  connection.up = true;
  showLogin(message);
}

function closeDialogs() {
  const layer = document.getElementById('dialog-layer');
  clear(layer);
  layer.hidden = true;
}

async function start(session) {
  app.session = session;
  resetTimeFormats();
  app.site = await api('GET', 'site');
  document.getElementById('site-name').textContent = app.site.site;
  document.title = `${app.site.site} · Site console`;
  document.getElementById('who-name').textContent = session.name;
  const scope = document.getElementById('who-scope');
  scope.textContent = session.scope === 'operator' ? 'operator' : 'read-only';
  scope.className = `chip ${session.scope === 'operator' ? 'chip-blue' : 'chip-grey'}`;
  document.getElementById('login').hidden = true;
  document.getElementById('shell').hidden = false;
  // Live from the newest record: each page reads what came before from the journal.
  const newest = await api('GET', 'events/search?limit=1');
  live.lastId = newest.last_id;
  openStream();
  refreshHolders();
  route();
}

async function login(e) {
  e.preventDefault();
  const token = document.getElementById('login-token');
  const err = document.getElementById('login-error');
  const submit = document.getElementById('login-submit');
  err.textContent = '';
  if (!token.value.trim()) {
    err.textContent = 'Enter a token.';
    token.focus();
    return;
  }
  submit.disabled = true;
  try {
    const s = await api('POST', 'session', { token: token.value.trim() }, { login: true });
    token.value = '';
    await start(s);
  } catch (ex) {
    err.textContent = ex.status === 401 ? 'This token is not known to the gateway.' : ex.message;
    token.select();
  } finally {
    submit.disabled = false;
  }
}

async function logout() {
  try { await api('DELETE', 'session'); } catch (e) { /* ended either way */ }
  sessionEnded('You have logged out.');
}

// ---- Pages ----------------------------------------------------------------------------------

let current = null;  // {name, cleanup}

function unmountPage() {
  if (current && current.cleanup) current.cleanup();
  current = null;
}

function route() {
  if (!app.session) return;
  let name = (location.hash.replace(/^#\/?/, '').split(/[/?]/)[0]) || 'controllers';
  if (!pages[name]) name = 'controllers';
  unmountPage();
  closeDialogs();
  for (const a of document.querySelectorAll('#nav a')) {
    a.classList.toggle('active', a.dataset.page === name);
    if (a.dataset.page === name) a.setAttribute('aria-current', 'page'); else a.removeAttribute('aria-current');
  }
  const main = clear(document.getElementById('main'));
  main.dataset.page = name;
  current = { name, cleanup: pages[name].mount(main, app) };
  main.focus({ preventScroll: true });
}

async function boot() {
  document.getElementById('login-form').addEventListener('submit', login);
  document.getElementById('logout').addEventListener('click', logout);
  window.addEventListener('hashchange', route);
  for (;;) {
    try {
      const s = await api('GET', 'session', undefined, { login: true });
      if (s.via === 'session' || s.via === 'anonymous') await start(s);
      else showLogin();
      return;
    } catch (e) {
      if (e.status === 401) { showLogin(); return; }
      if (!e.offline) { showLogin(e.message); return; }
      await new Promise((r) => setTimeout(r, 2000));
    }
  }
}

sessionHooks.ended = sessionEnded;
boot();
