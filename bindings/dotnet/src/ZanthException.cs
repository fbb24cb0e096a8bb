// A result that an export's success rule calls a failure.

using System;

namespace Zanth
{
    /// <summary>The library (or the controller) refused a call: the result code, its name and its
    /// meaning from the API model, and the export that gave it.</summary>
    public class ZanthException : Exception
    {
        /// <summary>The result: a library result from -10001 to -10030, a controller's own negative
        /// value, or a positive system error number where the rule wants 0.</summary>
        public int Code { get; private set; }
        /// <summary>"kNotValid" for a library result; otherwise what kind of value it is.</summary>
        public string Name { get; private set; }
        public string Meaning { get; private set; }
        public string Export { get; private set; }

        public ZanthException(string export, int code)
            : base(export + ": " + code + " " + ZanthModel.ResultName(code) + ": " + ZanthModel.ResultMeaning(code))
        {
            Export = export;
            Code = code;
            Name = ZanthModel.ResultName(code);
            Meaning = ZanthModel.ResultMeaning(code);
        }
    }
}
