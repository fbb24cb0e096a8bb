// The binding against libzanth.so with no controller: the generated declarations against the
// library and the model, the argument checks that come before any call, the success rules, and
// the calls that stay inside the library.

using System;
using System.Collections.Generic;
using System.Reflection;
using System.Runtime.InteropServices;
using System.Text;

namespace Zanth.Tests
{
    public static class LocalTests
    {
        // The .NET type each C type of the header crosses as.
        static readonly Dictionary<string, Type> Widths = new Dictionary<string, Type>
        {
            { "int32_t", typeof(int) }, { "uint32_t", typeof(uint) }, { "uint16_t", typeof(ushort) },
            { "char", typeof(byte) }, { "void*", typeof(IntPtr) },
            { "int32_t*", typeof(int).MakeByRefType() }, { "uint32_t*", typeof(uint).MakeByRefType() },
            { "uint64_t*", typeof(ulong).MakeByRefType() },
            { "char*", typeof(byte[]) }, { "const char*", typeof(byte[]) },
            { "ZanthTextCallback", typeof(ZanthTextCallback) },
            { "ZanthResponseCallback", typeof(ZanthResponseCallback) },
            { "ZanthConnectionCallback", typeof(ZanthConnectionCallback) },
        };

        [Test] public static void EveryExportIsDeclaredWithItsWidthsAndResolves()
        {
            var declared = new Dictionary<string, MethodInfo>();
            foreach (MethodInfo m in typeof(ZanthNative).GetMethods(BindingFlags.Public | BindingFlags.Static))
            {
                if ((m.Attributes & MethodAttributes.PinvokeImpl) != 0) declared.Add(m.Name, m);
            }
            Assert.Equal(ZanthNative.ExportCount, declared.Count, "DllImport declarations");
            Assert.Equal(ZanthNative.ExportCount, ZanthModel.Exports.Count, "exports in the model");
            int resolved = 0;
            foreach (ExportInfo e in ZanthModel.Exports)
            {
                MethodInfo m;
                Assert.True(declared.TryGetValue(e.Name, out m), e.Name + " is declared");
                Assert.Equal(typeof(int), m.ReturnType, e.Name + " returns a 32-bit result");
                ParameterInfo[] ps = m.GetParameters();
                Assert.Equal(e.Params.Count, ps.Length, e.Name + ": parameters");
                for (int i = 0; i < ps.Length; i++)
                {
                    Assert.Equal(Widths[e.Params[i].CType], ps[i].ParameterType, e.Name + "." + e.Params[i].Name);
                }
                var import = (DllImportAttribute)m.GetCustomAttributes(typeof(DllImportAttribute), false)[0];
                Assert.Equal(CallingConvention.Cdecl, import.CallingConvention, e.Name + ": calling convention");
                // Binds the entry point now: EntryPointNotFoundException for one the library lacks.
                Marshal.Prelink(m);
                resolved++;
                Assert.True(typeof(ZanthApi).GetMethod(e.Name) != null, e.Name + " has a typed wrapper");
            }
            Assert.Equal(275, resolved, "entry points bound in libzanth");
            // int32_t rspid and 4117 characters, padded to the int's alignment: as the C compiler lays it out.
            Assert.Equal(4 + 4120, Marshal.SizeOf(typeof(ZanthResponse)), "sizeof(ZanthResponse)");
            Assert.Equal(4, (int)Marshal.OffsetOf(typeof(ZanthResponse), "Text"), "offset of text");
        }

        [Test] public static void CallsInsideTheLibraryRoundTrip()
        {
            Assert.Equal(ZanthModel.LibraryVersion, ZanthApi.GetDLLVersion(), "the library is the model's");
            ZanthApi.DebugLevel(1, 60);
            Assert.Equal(60, ZanthApi.DebugLevel(0), "a level set reads back");
            ZanthApi.RecvWaitTime(1, 4321);
            Assert.Equal(4321, ZanthApi.RecvWaitTime(0), "a wait time set reads back");
            ZanthApi.SetValidControllers("C0:00:01, c0:00:02");
            string valid = ZanthApi.GetValidControllers();
            Assert.Contains("C0:00:01", valid.ToUpperInvariant(), "valid list");
            Assert.Contains("C0:00:02", valid.ToUpperInvariant(), "valid list");
            // The polls' "nothing" is null, not an exception: queues (-10009) and message files (-10008).
            Assert.True(ZanthApi.GetNextHereIAm() == null, "no here-I-am");
            Assert.True(ZanthApi.GetNextLookup() == null, "no look-up");
            Assert.True(ZanthApi.GetNextResponse() == null, "no response");
            Assert.True(ZanthApi.GetNextEvent() == null, "no event in the file");
            Assert.True(ZanthApi.GetNextAlarm() == null, "no alarm in the file");
            Assert.Equal(0, ZanthApi.GetNumberResponse(), "responses waiting");
            Assert.Equal(0UL, ZanthApi.NumberUnreadEvents(), "unread events");
        }

        sealed class Case
        {
            public string What;
            public Action Call;
            public Type Expected;
            public string Param;
        }

        static Case Refused<T>(string what, string param, Action call) where T : ArgumentException
        {
            return new Case { What = what, Call = call, Expected = typeof(T), Param = param };
        }

        [Test] public static void ArgumentsAreCheckedBeforeAnyCall()
        {
            // A MAC the library doesn't know: every call that reaches it fails with -10004 (the
            // library looks at the MAC first), so an ArgumentException shows the call stopped here.
            const string mac = "C0:00:09";
            var control = Assert.Throws<ZanthException>(() => ZanthApi.CmdOutputFunction3(mac, 32, 0, 1), "control call");
            Assert.Equal(-10004, control.Code, "the control call reached the library");

            Func<CardRecord> card = () => new CardRecord { CardNumber = "1001", Pin = "1234", UniqueId = 42 };
            var cases = new List<Case>
            {
                Refused<ArgumentNullException>("null MAC", "mac", () => ZanthApi.ControllerInfo(null)),
                Refused<ArgumentException>("empty MAC", "mac", () => ZanthApi.ControllerInfo("")),
                Refused<ArgumentException>("';' in a MAC", "mac", () => ZanthApi.ControllerInfo("C0:00;09")),
                Refused<ArgumentOutOfRangeException>("port below 1025", "port", () => new ZanthLibrary(1024, "ALL")),
                Refused<ArgumentOutOfRangeException>("port above 65535", "port", () => new ZanthLibrary(65536, "ALL")),
                Refused<ArgumentException>("NUL in the valid list", "list", () => new ZanthLibrary(3001, "C0:00:01\0")),
                Refused<ArgumentOutOfRangeException>("target above 32", "target", () => ZanthApi.CmdOutputFunction3(mac, 33, 0, 1)),
                Refused<ArgumentOutOfRangeException>("state below 0", "state", () => ZanthApi.CmdOutputFunction3(mac, 32, 0, -1)),
                Refused<ArgumentException>("year after 2037", "date", () => ZanthApi.SetTimeDate(mac, "2038/01/01", "12:00:00")),
                Refused<ArgumentException>("month 13", "date", () => ZanthApi.SetTimeDate(mac, "2024/13/01", "12:00:00")),
                Refused<ArgumentException>("hour 24", "time", () => ZanthApi.SetTimeDate(mac, "2024/01/01", "24:00:00")),
                Refused<ArgumentException>("a time of two parts", "time", () => ZanthApi.SetTimeDate(mac, "2024/01/01", "12:00")),
                Refused<ArgumentNullException>("no card record", "record", () => ZanthApi.AddModCardRecord3(mac, null)),
                Refused<ArgumentOutOfRangeException>("access type 4", "accessType", () => { var r = card(); r.AccessType = 4; ZanthApi.AddModCardRecord3(mac, r); }),
                Refused<ArgumentOutOfRangeException>("unique ID 0", "uniqueId", () => { var r = card(); r.UniqueId = 0; ZanthApi.AddModCardRecord3(mac, r); }),
                Refused<ArgumentOutOfRangeException>("a card role beyond 16 bits", "cardRole", () => { var r = card(); r.CardRole = 65536; ZanthApi.AddModCardRecord3(mac, r); }),
                Refused<ArgumentException>("';' in a card number", "cardNumber", () => { var r = card(); r.CardNumber = "10;01"; ZanthApi.AddModCardRecord3(mac, r); }),
                Refused<ArgumentException>("a start date with dashes", "startDate", () => { var r = card(); r.StartDate = "2024-01-01"; ZanthApi.AddModCardRecord3(mac, r); }),
                Refused<ArgumentOutOfRangeException>("a mode the export lacks", "mode", () => ZanthApi.CmdEventLog(mac, 3, 0, 0)),
                Refused<ArgumentOutOfRangeException>("message ID 0 in mode 6", "value1", () => ZanthApi.CmdEventLog(mac, 6, 0, 1)),
                Refused<ArgumentOutOfRangeException>("log level 76 to set", "level", () => ZanthApi.DebugLevel(1, 76)),
                Refused<ArgumentException>("permission 648", "permission", () => ZanthApi.FileStatus(mac, 1, "/etc/x", "648")),
                Refused<ArgumentException>("NUL in a text", "tz", () => ZanthApi.SetTZ(mac, "UTC\0")),
                Refused<ArgumentException>("a character without a byte", "tz", () => ZanthApi.SetTZ(mac, "Asia/\u6771\u4eac")),
                Refused<ArgumentException>("an empty controller path", "controllerPathFile", () => ZanthApi.GetFile(mac, "", "local")),
                Refused<ArgumentException>("a controller path of 256", "controllerPathFile", () => ZanthApi.GetFile(mac, new string('a', 256), "local")),
                Refused<ArgumentOutOfRangeException>("a chunk of 4087 bytes", "data", () => ZanthApi.SendData(mac, "/f", new byte[4087], 0)),
                Refused<ArgumentException>("';' in a chunk", "data", () => ZanthApi.SendData(mac, "/f", Encoding.ASCII.GetBytes("a;b"), 0)),
                Refused<ArgumentNullException>("no chunk", "data", () => ZanthApi.SendData(mac, "/f", null, 0)),
                Refused<ArgumentOutOfRangeException>("an output type not listed", "outputType", () => ZanthApi.ReadInterfaceMemory_2(mac, 0, 1, "0000", 8, 'x')),
                Refused<ArgumentNullException>("no callback", "callback", () => ZanthApi.SetEventCallback(null)),
                Refused<ArgumentException>("a selection longer than its buffer", "cardNumber", () => ZanthApi.GetCardRecord4(mac, 0, 0, new string('1', 4098), "1")),
            };
            foreach (Case c in cases)
            {
                Exception e = null;
                try
                {
                    c.Call();
                }
                catch (Exception thrown)
                {
                    e = thrown;
                }
                Assert.True(e != null, c.What + ": nothing was thrown");
                Assert.Equal(c.Expected, e.GetType(), c.What + " (" + e.Message + ")");
                Assert.Equal(c.Param, ((ArgumentException)e).ParamName, c.What + ": the parameter named");
            }

            // What the mode doesn't read, or makes an output, is not checked: these reach the library.
            var passed = new List<Action>
            {
                () => ZanthApi.CmdEventLog(mac, 1, -5, -5),
                () => ZanthApi.FileStatus(mac, 0, "/etc/x", "not an octal"),
                () => ZanthApi.SetTZ(mac, "Europe/Z\u00fcrich"),
                () => ZanthApi.ReadInterfaceMemory_2(mac, 0, 1, "0000", 8, 'A'),
            };
            foreach (Action call in passed)
            {
                Assert.Equal(-10004, Assert.Throws<ZanthException>(call, "a call the model allows").Code, "reached the library");
            }
            Assert.Equal(60, ZanthApi.DebugLevel(1, 60), "level 60 is set");
            Assert.Equal(60, ZanthApi.DebugLevel(0, 9999), "mode 0 reads the level; 9999 is not sent");
        }

        [Test] public static void SuccessRulesDecideWhatThrows()
        {
            const string mac = "C0:00:09";
            var notValid = Assert.Throws<ZanthException>(() => ZanthApi.ControllerInfo(mac), "unknown MAC");
            Assert.Equal(-10004, notValid.Code, "code");
            Assert.Equal("kNotValid", notValid.Name, "name");
            Assert.Equal("the MAC is not in the valid list", notValid.Meaning, "meaning from the model");
            Assert.Equal("ControllerInfo", notValid.Export, "export");
            Assert.Contains("-10004 kNotValid", notValid.Message, "message");

            ZanthApi.SetValidControllers(mac);
            Assert.Equal("kNotConnected", Assert.Throws<ZanthException>(() => ZanthApi.ControllerInfo(mac), "valid, not connected").Name, "name");
            Assert.Equal(-10003, Assert.Throws<ZanthException>(() => ZanthApi.RspControllerInfo(1, mac), "Rsp form").Code, "a Rsp form that sent nothing fails");

            // Schedules: the blocking form's -1 is a failure of the controller's own kind; the Rsp
            // form's -1 says nothing and never throws; the result kind's Rsp form fails only when
            // nothing went out.
            var status = Assert.Throws<ZanthException>(() => ZanthApi.DeleteSchedule(mac, 1), "status kind");
            Assert.Equal(-1, status.Code, "status code");
            Assert.Equal("controller result", status.Name, "a code outside the library's");
            Assert.Equal(-1, ZanthApi.RspDeleteSchedule(7, mac, 1), "status Rsp form: -1 and no exception");
            Assert.Equal(-10003, Assert.Throws<ZanthException>(() => ZanthApi.RspGetSchedule(8, mac, 1), "result Rsp form").Code, "not connected");

            // The tables behind these, at the edges of each rule.
            var edges = new[]
            {
                new { Rule = Rule.Controller, Code = 0, Ok = true, Empty = false },
                new { Rule = Rule.Controller, Code = 7, Ok = true, Empty = false },
                new { Rule = Rule.Controller, Code = -1, Ok = false, Empty = false },
                new { Rule = Rule.Zero, Code = 0, Ok = true, Empty = false },
                new { Rule = Rule.Zero, Code = 10061, Ok = false, Empty = false },
                new { Rule = Rule.Status, Code = -1, Ok = false, Empty = false },
                new { Rule = Rule.StatusRsp, Code = -10004, Ok = true, Empty = false },
                new { Rule = Rule.ResultRsp, Code = -1, Ok = true, Empty = false },
                new { Rule = Rule.ResultRsp, Code = 0, Ok = false, Empty = false },
                new { Rule = Rule.Poll, Code = -10009, Ok = true, Empty = true },
                new { Rule = Rule.Poll, Code = -10008, Ok = false, Empty = false },
                new { Rule = Rule.PollFile, Code = -10008, Ok = true, Empty = true },
                new { Rule = Rule.PollFile, Code = -10007, Ok = false, Empty = false },
            };
            foreach (var e in edges)
            {
                Assert.Equal(e.Ok, ZanthModel.Succeeded(e.Rule, e.Code), e.Rule + " " + e.Code + " ok");
                Assert.Equal(e.Empty, ZanthModel.IsEmpty(e.Rule, e.Code), e.Rule + " " + e.Code + " empty");
            }
        }
    }
}
