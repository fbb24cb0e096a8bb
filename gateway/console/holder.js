// A cardholder's checks before sending, shared by the form and the CSV import: the API's own
// bounds, so that a mistake is named before the round trip.

const LOCAL_TIME = /^(\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2})(?::(\d{2}))?$/;

export function checkLocalTime(text) {
  const m = LOCAL_TIME.exec(text);
  if (!m) return false;
  const [y, mo, d, hh, mm, ss] = m.slice(1).map((v) => Number(v || 0));
  const days = new Date(Date.UTC(y, mo, 0)).getUTCDate();
  return y >= 1970 && mo >= 1 && mo <= 12 && d >= 1 && d <= days && hh <= 23 && mm <= 59 && ss <= 59;
}

export function checkCardNumber(text) {
  return /^\d{1,10}$/.test(text) && Number(text) <= 4294967295;
}

export function checkFacility(text) {
  return /^-?\d{1,10}$/.test(text) && Number(text) >= -2147483648 && Number(text) <= 2147483647;
}

// The problems of a cardholder as the form or a CSV line gives it: [{field, message}], in the
// API's field names.
export function checkHolder(doc, site, schedules) {
  const out = [];
  const fail = (field, message) => out.push({ field, message });
  if (!doc.name || !doc.name.trim()) fail('name', 'A name is required.');
  else if (doc.name.length > 200) fail('name', 'At most 200 characters.');
  if (doc.pin && !/^\d{1,16}$/.test(doc.pin)) fail('pin', 'Digits only, at most 16.');
  if (doc.valid_from && !checkLocalTime(doc.valid_from)) fail('valid_from', 'A date and time such as 2025-03-30T08:00.');
  if (doc.valid_until && !checkLocalTime(doc.valid_until)) fail('valid_until', 'A date and time such as 2025-12-31T18:00.');
  if (doc.valid_from && doc.valid_until && checkLocalTime(doc.valid_from) && checkLocalTime(doc.valid_until)
      && doc.valid_until <= doc.valid_from) fail('valid_until', 'Must be after the start of the window.');
  const seen = new Set();
  (doc.cards || []).forEach((c, i) => {
    if (!checkCardNumber(String(c.number))) fail(`cards[${i}].number`, 'A card number: a whole number from 0 to 4294967295.');
    if (c.facility != null && !checkFacility(String(c.facility))) fail(`cards[${i}].facility`, 'A facility: a whole number, or empty for any.');
    const key = `${c.number}/${c.facility ?? ''}`;
    if (seen.has(key)) fail(`cards[${i}].number`, 'The same card twice.');
    seen.add(key);
  });
  if ((doc.cards || []).length > 100) fail('cards', 'At most 100 cards per cardholder.');
  const doors = new Set((site.doors || []).map((d) => d.name));
  (doc.access || []).forEach((a, i) => {
    if (!doors.has(a.door)) fail(`access[${i}].door`, `No door named "${a.door}" on this site.`);
    if (a.schedule && schedules && !schedules.some((s) => s.name === a.schedule)) {
      fail(`access[${i}].schedule`, `No schedule named "${a.schedule}".`);
    }
  });
  return out;
}

// The API's 400 (or 409) as a field message.
export function apiProblem(e) {
  return { field: e.field || '_form', message: e.message.charAt(0).toUpperCase() + e.message.slice(1) };
}
