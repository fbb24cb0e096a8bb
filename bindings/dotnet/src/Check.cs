// The checks every typed wrapper makes before it calls the library: each argument against its
// parameter's bounds in the model (in the export's mode, where it has one), and each result
// against the export's success rule. A refused argument raises ArgumentNullException,
// ArgumentOutOfRangeException or ArgumentException naming the export and the parameter, and
// nothing reaches the library.

using System;
using System.Globalization;

namespace Zanth
{
    internal static class Check
    {
        static string Where(ExportInfo x, string param)
        {
            return x.Name + ": " + param;
        }

        static ArgumentException Refuse(ExportInfo x, ParamInfo p, string why)
        {
            return new ArgumentException(Where(x, p.Name) + " " + why, p.Name);
        }

        public static void NotNull(ExportInfo x, object value, string name)
        {
            if (value == null) throw new ArgumentNullException(name, Where(x, name) + " must not be null");
        }

        /// <summary>A controller's MAC: a text of its own, never written by the library.</summary>
        public static byte[] Mac(ExportInfo x, int index, string mac)
        {
            ParamInfo p = x.Params[index];
            NotNull(x, mac, p.Name);
            if (mac.Length == 0 || mac.Length > 64 || mac.IndexOf(';') >= 0 || mac.IndexOf('\0') >= 0 ||
                NativeText.FirstWide(mac) >= 0)
            {
                throw Refuse(x, p, "must be a controller's MAC such as C0:00:01 (got \"" + mac + "\")");
            }
            return NativeText.In(mac);
        }

        /// <summary>A number within its bounds, and one of its values where the model lists some.
        /// A parameter that the mode leaves unused or makes an output is not checked.</summary>
        public static void Number(ExportInfo x, int index, long value, long? mode = null)
        {
            ParamInfo p = x.Params[index];
            ParamDir dir = p.DirIn(mode);
            if (dir == ParamDir.Unused || dir == ParamDir.Out) return;
            Bounds b = p.BoundsIn(mode);
            bool listed = b.Values.Count == 0 || b.Values.Contains(value);
            if (value < b.Min || value > b.Max || !listed)
            {
                throw new ArgumentOutOfRangeException(p.Name, value, Where(x, p.Name) + " must be " +
                                                      Range(b, false) + " (got " + value + ")");
            }
        }

        public static void Number(ExportInfo x, int index, ulong value, long? mode = null)
        {
            if (value > long.MaxValue)
            {
                ParamInfo p = x.Params[index];
                ParamDir dir = p.DirIn(mode);
                if (dir == ParamDir.Unused || dir == ParamDir.Out) return;
                throw new ArgumentOutOfRangeException(p.Name, value, Where(x, p.Name) + " must be " +
                                                      Range(p.BoundsIn(mode), false) + " (got " + value + ")");
            }
            Number(x, index, (long)value, mode);
        }

        /// <summary>One character that has a byte, and one of the model's values.</summary>
        public static byte Char(ExportInfo x, int index, char value)
        {
            ParamInfo p = x.Params[index];
            Bounds b = p.Bounds;
            bool listed = b.Values.Count == 0 || b.Values.Contains(value);
            if (value > '\u00ff' || value < b.Min || value > b.Max || !listed)
            {
                throw new ArgumentOutOfRangeException(p.Name, value, Where(x, p.Name) + " must be " +
                                                      Range(b, true) + " (got '" + value + "')");
            }
            return (byte)value;
        }

        /// <summary>A text the library reads (or may change: it gets a copy of its own, of at least
        /// the model's capacity). Unused in the mode: a zeroed place of its own.</summary>
        public static byte[] Text(ExportInfo x, int index, string text, long? mode = null)
        {
            ParamInfo p = x.Params[index];
            ParamDir dir = p.DirIn(mode);
            if (dir == ParamDir.Unused) return new byte[Math.Max(1, p.Bounds.MinCapacity)];
            Bounds b = p.BoundsIn(mode);
            CheckText(x, p, b, text);
            return NativeText.In(text, b.MinCapacity);
        }

        /// <summary>A text read and then overwritten: it must fit the buffer of `size` bytes.</summary>
        public static byte[] InoutText(ExportInfo x, int index, string text, int size)
        {
            ParamInfo p = x.Params[index];
            CheckText(x, p, p.Bounds, text);
            return Fitted(x, p, text, size);
        }

        /// <summary>A text that the mode makes an input (checked, and it must fit `size`) or an
        /// output (a zeroed buffer of `size`).</summary>
        public static byte[] ModeText(ExportInfo x, int index, string text, int size, long mode)
        {
            ParamInfo p = x.Params[index];
            if (p.DirIn(mode) != ParamDir.In) return NativeText.Out(size);
            CheckText(x, p, p.BoundsIn(mode), text);
            return Fitted(x, p, text, size);
        }

        static byte[] Fitted(ExportInfo x, ParamInfo p, string text, int size)
        {
            if (text.Length > size)
            {
                throw Refuse(x, p, "is longer than its buffer of " + size + " bytes (got " + text.Length + ")");
            }
            return NativeText.In(text, size + 1);
        }

        /// <summary>Bytes the library sends as they are: their count within the size's bounds.</summary>
        public static byte[] Bytes(ExportInfo x, int index, byte[] data)
        {
            ParamInfo p = x.Params[index];
            NotNull(x, data, p.Name);
            Bounds size = x.Params[p.SizeParam].Bounds;
            if (data.Length < size.Min || data.Length > size.Max)
            {
                throw new ArgumentOutOfRangeException(p.Name, data.Length, Where(x, p.Name) + " must hold " +
                                                      Range(size, false) + " bytes (got " + data.Length + ")");
            }
            if (p.Bounds.NoSemicolon && Array.IndexOf(data, (byte)';') >= 0)
            {
                throw Refuse(x, p, "must not hold ';', which separates the fields of the message");
            }
            var buffer = new byte[data.Length + 1];
            Array.Copy(data, buffer, data.Length);
            return buffer;
        }

        /// <summary>Raises ZanthException for a result the export's rule calls a failure; true for a
        /// poll that found nothing.</summary>
        public static bool Result(ExportInfo x, int result)
        {
            if (!ZanthModel.Succeeded(x.Rule, result)) throw new ZanthException(x.Name, result);
            return ZanthModel.IsEmpty(x.Rule, result);
        }

        static void CheckText(ExportInfo x, ParamInfo p, Bounds b, string t)
        {
            NotNull(x, t, p.Name);
            if (t.IndexOf('\0') >= 0) throw Refuse(x, p, "must not hold a NUL character");
            int wide = NativeText.FirstWide(t);
            if (wide >= 0)
            {
                throw Refuse(x, p, "must hold only characters U+0000 to U+00FF, one byte each (got U+" +
                                   ((int)t[wide]).ToString("X4", CultureInfo.InvariantCulture) +
                                   " at " + wide + ")");
            }
            if (b.NotEmpty && t.Length == 0) throw Refuse(x, p, "must not be empty");
            if (b.NoSemicolon && t.IndexOf(';') >= 0)
            {
                throw Refuse(x, p, "must not hold ';', which separates the fields of the message");
            }
            if (b.MaxLength > 0 && t.Length > b.MaxLength)
            {
                throw Refuse(x, p, "must be at most " + b.MaxLength + " bytes long (got " + t.Length + ")");
            }
            string expected;
            if (!Matches(b.Pattern, t, out expected))
            {
                throw Refuse(x, p, "must be " + expected + " (got \"" + t + "\")");
            }
        }

        static string Range(Bounds b, bool characters)
        {
            if (b.Values.Count > 0)
            {
                var parts = new string[b.Values.Count];
                for (int i = 0; i < parts.Length; i++)
                {
                    parts[i] = characters ? "'" + (char)b.Values[i] + "'" : b.Values[i].ToString(CultureInfo.InvariantCulture);
                }
                return "one of " + string.Join(", ", parts);
            }
            return b.Min + " to " + b.Max;
        }

        /// <summary>True when `t` has the pattern's form; `expected` says what that form is.</summary>
        public static bool Matches(TextPattern pattern, string t, out string expected)
        {
            const string date = "a date yyyy/mm/dd (year 1901 to 2037, month 1 to 12, day 1 to 31)";
            const string time = "a time hh:mm:ss (hour 0 to 23, minute and second 0 to 59)";
            switch (pattern)
            {
                case TextPattern.Hex:
                    expected = "hexadecimal digits";
                    return t.Length > 0 && AllHex(t);
                case TextPattern.HexOrEmpty:
                    expected = "hexadecimal digits or an empty text";
                    return AllHex(t);
                case TextPattern.Octal3:
                    expected = "three octal digits such as 644";
                    return t.Length == 3 && t[0] >= '0' && t[0] <= '7' && t[1] >= '0' && t[1] <= '7' &&
                           t[2] >= '0' && t[2] <= '7';
                case TextPattern.Date:
                    expected = date;
                    return Triple(t, '/', 1901, 2037, 12, 31, 1);
                case TextPattern.DateOrZero:
                    expected = date + " or 0";
                    return t == "0" || Triple(t, '/', 1901, 2037, 12, 31, 1);
                case TextPattern.Time:
                    expected = time;
                    return Triple(t, ':', 0, 23, 59, 59, 0);
                case TextPattern.TimeOrZero:
                    expected = time + " or 0";
                    return t == "0" || Triple(t, ':', 0, 23, 59, 59, 0);
                default:
                    expected = "";
                    return true;
            }
        }

        static bool AllHex(string t)
        {
            foreach (char c in t)
            {
                if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) return false;
            }
            return true;
        }

        // "a/b/c", each part 1 to 4 digits: a within [firstLow, firstHigh], b within [low, secondHigh],
        // c within [low, thirdHigh].
        static bool Triple(string t, char sep, int firstLow, int firstHigh, int secondHigh, int thirdHigh, int low)
        {
            string[] parts = t.Split(sep);
            if (parts.Length != 3) return false;
            int[] lows = { firstLow, low, low };
            int[] highs = { firstHigh, secondHigh, thirdHigh };
            for (int i = 0; i < 3; i++)
            {
                string s = parts[i];
                if (s.Length == 0 || s.Length > 4) return false;
                int value = 0;
                foreach (char c in s)
                {
                    if (c < '0' || c > '9') return false;
                    value = value * 10 + (c - '0');
                }
                if (value < lows[i] || value > highs[i]) return false;
            }
            return true;
        }
    }
}
