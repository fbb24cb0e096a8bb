// The shapes of the API model's tables (ZanthModel.g.cs fills them) and the questions asked of
// them: what a result code is called and means, and whether an export's rule calls it a success.

using System;
using System.Collections.Generic;

namespace Zanth
{
    /// <summary>When an export's result counts as a success.</summary>
    public enum Rule
    {
        /// <summary>0 or a positive value from the controller.</summary>
        Controller,
        /// <summary>0 alone; a positive value is a system error number.</summary>
        Zero,
        /// <summary>The reply's single field as the controller sent it: 0 or above.</summary>
        Status,
        /// <summary>Always -1, which says nothing: never a failure.</summary>
        StatusRsp,
        /// <summary>-1 once the message is queued.</summary>
        ResultRsp,
        /// <summary>0 when an item was taken; -10009 when the queue is empty (no failure).</summary>
        Poll,
        /// <summary>0 when a record was taken; -10008 when none is unread (no failure).</summary>
        PollFile,
    }

    public enum Form { Blocking, Rsp, Local }

    public enum ParamRole
    {
        Mac, Rspid, In, InChar, InText, WritableText, OutText, InoutText, OutBytes, InBytes, Size,
        OutInt32, OutUint32, OutUint64, InoutInt32, Callback, Handle, LocalPath, ModeDependent,
    }

    /// <summary>A parameter's direction; ByMode: see its mode rules.</summary>
    public enum ParamDir { In, Out, Inout, Unused, ByMode }

    public enum TextPattern
    {
        None,
        /// <summary>Hexadecimal digits, at least one.</summary>
        Hex,
        /// <summary>Hexadecimal digits, or nothing.</summary>
        HexOrEmpty,
        /// <summary>Three digits 0 to 7.</summary>
        Octal3,
        /// <summary>yyyy/mm/dd: year 1901 to 2037, month 1 to 12, day 1 to 31.</summary>
        Date,
        DateOrZero,
        /// <summary>hh:mm:ss: hour 0 to 23, minute and second 0 to 59.</summary>
        Time,
        TimeOrZero,
    }

    /// <summary>What an argument must satisfy: numbers Min..Max (the C type's range where the model
    /// states nothing narrower) and one of Values where there are any; texts the flags.</summary>
    public sealed class Bounds
    {
        public static readonly Bounds None = new Bounds();

        public long Min { get; private set; }
        public long Max { get; private set; }
        public IList<long> Values { get; private set; }
        public TextPattern Pattern { get; private set; }
        public bool NoSemicolon { get; private set; }
        public bool NotEmpty { get; private set; }
        public int MaxLength { get; private set; }
        /// <summary>A writable text's buffer holds at least this many bytes.</summary>
        public int MinCapacity { get; private set; }
        public bool LocalPath { get; private set; }
        /// <summary>Sent as it stands: the text is the message's payload.</summary>
        public bool Verbatim { get; private set; }

        public Bounds(long min = long.MinValue, long max = long.MaxValue, long[] values = null,
                      TextPattern pattern = TextPattern.None, bool noSemicolon = false,
                      bool notEmpty = false, int maxLength = 0, int minCapacity = 0,
                      bool localPath = false, bool verbatim = false)
        {
            Min = min;
            Max = max;
            Values = Array.AsReadOnly(values ?? new long[0]);
            Pattern = pattern;
            NoSemicolon = noSemicolon;
            NotEmpty = notEmpty;
            MaxLength = maxLength;
            MinCapacity = minCapacity;
            LocalPath = localPath;
            Verbatim = verbatim;
        }
    }

    /// <summary>A parameter's direction and bounds in one value of its export's mode.</summary>
    public sealed class ModeRule
    {
        public int Mode { get; private set; }
        public ParamDir Dir { get; private set; }
        public Bounds Bounds { get; private set; }

        public ModeRule(int mode, ParamDir dir, Bounds bounds)
        {
            Mode = mode;
            Dir = dir;
            Bounds = bounds;
        }
    }

    public sealed class ParamInfo
    {
        public string Name { get; private set; }
        /// <summary>The C type as declared.</summary>
        public string CType { get; private set; }
        public ParamRole Role { get; private set; }
        /// <summary>int32, uint32, uint16, uint64, char, text, bytes, callback or handle.</summary>
        public string Base { get; private set; }
        public ParamDir Dir { get; private set; }
        public Bounds Bounds { get; private set; }
        /// <summary>The index of this buffer's size parameter; -1: none.</summary>
        public int SizeParam { get; private set; }
        /// <summary>The index of the buffer a size parameter measures; -1: none.</summary>
        public int OfParam { get; private set; }
        /// <summary>The index of the count of an output chunk; -1: none.</summary>
        public int CountParam { get; private set; }
        public int DefaultSize { get; private set; }
        /// <summary>An output text without a size parameter holds this many bytes.</summary>
        public int FixedSize { get; private set; }
        /// <summary>An output that holds a reply frame, measured by its length field.</summary>
        public bool Frame { get; private set; }
        /// <summary>The index of the `mode` parameter; -1: none.</summary>
        public int ModeParam { get; private set; }
        public IList<ModeRule> Modes { get; private set; }
        public string CallbackKind { get; private set; }
        /// <summary>The callback's text comes padded with blanks to a fixed length.</summary>
        public bool CallbackPadded { get; private set; }

        public ParamInfo(string name, string ctype, ParamRole role, string baseType, ParamDir dir,
                         Bounds bounds, int sizeParam = -1, int ofParam = -1, int countParam = -1,
                         int defaultSize = 0, int fixedSize = 0, bool frame = false,
                         int modeParam = -1, ModeRule[] modes = null, string callbackKind = null,
                         bool callbackPadded = false)
        {
            Name = name;
            CType = ctype;
            Role = role;
            Base = baseType;
            Dir = dir;
            Bounds = bounds;
            SizeParam = sizeParam;
            OfParam = ofParam;
            CountParam = countParam;
            DefaultSize = defaultSize;
            FixedSize = fixedSize;
            Frame = frame;
            ModeParam = modeParam;
            Modes = Array.AsReadOnly(modes ?? new ModeRule[0]);
            CallbackKind = callbackKind;
            CallbackPadded = callbackPadded;
        }

        /// <summary>The rule of `mode`, or null when the parameter doesn't depend on the mode (or
        /// the mode has no rule).</summary>
        public ModeRule In(long? mode)
        {
            if (mode == null) return null;
            foreach (ModeRule r in Modes)
            {
                if (r.Mode == mode.Value) return r;
            }
            return null;
        }

        /// <summary>The direction in `mode`: a mode without a rule leaves the parameter unused.</summary>
        public ParamDir DirIn(long? mode)
        {
            if (Modes.Count == 0 || mode == null) return Dir;
            ModeRule r = In(mode);
            return r == null ? ParamDir.Unused : r.Dir;
        }

        public Bounds BoundsIn(long? mode)
        {
            ModeRule r = In(mode);
            return r == null ? Bounds : r.Bounds;
        }
    }

    public sealed class ExportInfo
    {
        public string Name { get; private set; }
        public string Family { get; private set; }
        public Form Form { get; private set; }
        /// <summary>command, setting, life, info, callback, queue or message_file.</summary>
        public string Category { get; private set; }
        public Rule Rule { get; private set; }
        /// <summary>The other form's name (Rsp or blocking), or null.</summary>
        public string Twin { get; private set; }
        /// <summary>The C declaration.</summary>
        public string Decl { get; private set; }
        public IList<ParamInfo> Params { get; private set; }

        public ExportInfo(string name, string family, Form form, string category, Rule rule,
                          string twin, string decl, ParamInfo[] parameters)
        {
            Name = name;
            Family = family;
            Form = form;
            Category = category;
            Rule = rule;
            Twin = twin;
            Decl = decl;
            Params = Array.AsReadOnly(parameters);
        }

        public override string ToString() { return Name; }
    }

    /// <summary>A library result from -10001 to -10030.</summary>
    public sealed class ResultInfo
    {
        public int Code { get; private set; }
        public string Name { get; private set; }
        public string Meaning { get; private set; }

        public ResultInfo(int code, string name, string meaning)
        {
            Code = code;
            Name = name;
            Meaning = meaning;
        }
    }

    public sealed class RuleInfo
    {
        public Rule Rule { get; private set; }
        public string Name { get; private set; }
        public int? OkMin { get; private set; }
        public IList<int> OkValues { get; private set; }
        public bool AlwaysOk { get; private set; }
        /// <summary>The result of a poll that found nothing, which is no failure.</summary>
        public int? Empty { get; private set; }
        public string Doc { get; private set; }

        public RuleInfo(Rule rule, string name, int? okMin = null, int[] okValues = null,
                        bool alwaysOk = false, int? empty = null, string doc = null)
        {
            Rule = rule;
            Name = name;
            OkMin = okMin;
            OkValues = Array.AsReadOnly(okValues ?? new int[0]);
            AlwaysOk = alwaysOk;
            Empty = empty;
            Doc = doc;
        }
    }

    /// <summary>The API model: results, success rules and exports.</summary>
    public static partial class ZanthModel
    {
        public static IList<ResultInfo> Results { get { return Array.AsReadOnly(results); } }
        public static IList<RuleInfo> Rules { get { return Array.AsReadOnly(rules); } }
        public static IList<ExportInfo> Exports { get { return Array.AsReadOnly(exports); } }

        /// <summary>The export of that name, or null.</summary>
        public static ExportInfo Find(string name)
        {
            foreach (ExportInfo e in exports)
            {
                if (e.Name == name) return e;
            }
            return null;
        }

        public static ResultInfo FindResult(int code)
        {
            foreach (ResultInfo r in results)
            {
                if (r.Code == code) return r;
            }
            return null;
        }

        /// <summary>"kNotValid" for a library result; otherwise what kind of value it is.</summary>
        public static string ResultName(int code)
        {
            ResultInfo r = FindResult(code);
            if (r != null) return r.Name;
            if (code == 0) return "ok";
            return code > 0 ? "positive" : "controller result";
        }

        public static string ResultMeaning(int code)
        {
            ResultInfo r = FindResult(code);
            if (r != null) return r.Meaning;
            if (code == 0) return "success";
            if (code > 0)
            {
                return "a positive value: the controller's own success value where the command's " +
                       "rule allows it, otherwise a system (socket or thread) error number";
            }
            return "the controller's own negative result";
        }

        public static RuleInfo RuleOf(Rule rule)
        {
            foreach (RuleInfo r in rules)
            {
                if (r.Rule == rule) return r;
            }
            throw new ArgumentOutOfRangeException("rule");
        }

        /// <summary>True when `result` is a success under `rule`. A poll's "nothing" counts as no
        /// failure here; IsEmpty tells it apart.</summary>
        public static bool Succeeded(Rule rule, int result)
        {
            RuleInfo r = RuleOf(rule);
            if (r.AlwaysOk) return true;
            if (r.Empty == result) return true;
            if (r.OkMin != null && result >= r.OkMin.Value) return true;
            return r.OkValues.Contains(result);
        }

        public static bool IsEmpty(Rule rule, int result)
        {
            return RuleOf(rule).Empty == result;
        }
    }
}
