"""The simulated analyzer's belongings: identity and versions, settings, and the database with measured results."""

from __future__ import annotations

import shutil
import sqlite3
from pathlib import Path
from typing import Any

from bench.daemon import Daemon
from bench.engine import Laboratory
from bench.sandbox import ENGINE, Sandbox
from bench.zelapp import PcConnection, Started, ZelApp

DEVICE = "/data/device"
DATABASE = "/data/db/analyzer.db"
CONFIG = "/data/config"

SERIAL = "N62A0001234"
PROJECT_NAME = "N62"
PASSWORD = "zel1234"
OLD_VERSION = "1.00.00.0001"

ACCEPTING = "/tmp/.rm_proc Accept start"  # log line

SCHEMA = """
CREATE TABLE Tb_Result_Summary (ResultID INTEGER, PatientID TEXT, Birth TEXT, Sex TEXT, SpeciesID TEXT,
    SpeciesClass TEXT, ClientID TEXT, SpecimenType TEXT, Age TEXT, SerumIndexHEM TEXT, SerumIndexLIP TEXT,
    SerumIndexICT TEXT, ReagentVersion TEXT, SerialNumber TEXT, PanelID TEXT, LOTNumber TEXT, Date TEXT,
    OperatorID TEXT, ErrorCode TEXT, ErrorLevel TEXT, PCSync INTEGER DEFAULT 0);
CREATE TABLE Tb_Result_Data (ResultID INTEGER, AnalyteID TEXT, Result REAL, Unit TEXT, RefRange_Min REAL,
    RefRange_Max REAL, QCFlag TEXT, Dynamic_Min REAL, Dynamic_Max REAL);
CREATE TABLE Tb_Ctrl_Summary (ResultID INTEGER, ControlID TEXT, ReagentVersion TEXT, SerialNumber TEXT, PanelID TEXT,
    LOTNumber TEXT, QCMaterialName TEXT, QCMaterialLevel TEXT, QCMaterialLotNum TEXT, QCMaterialExpiredDate TEXT,
    Date TEXT, OperatorID TEXT, ErrorCode TEXT, ErrorLevel TEXT, PCSync INTEGER DEFAULT 0);
CREATE TABLE Tb_Ctrl_Data (ResultID INTEGER, AnalyteID TEXT, Result REAL, TargetMean REAL, TargetSD REAL, QCFlag TEXT,
    SelectedRule TEXT, RuleFlag TEXT, Min REAL, Max REAL, Dynamic_Min REAL, Dynamic_Max REAL);
CREATE TABLE Tb_Species_Feature (SpeciesID TEXT, Class TEXT);
CREATE TABLE Tb_Operator_List (OperatorID TEXT, Password TEXT);
CREATE TABLE Tb_Update_History (ModuleName TEXT, UpdateCompleteTime TEXT, ElapsedTime TEXT, OldVersion TEXT,
    NewVersion TEXT, Method TEXT);
"""

PATIENT_ID, ANIMAL_ID, CONTROL_ID = 12, 13, 5  # ResultID of the sample results

PATIENT = dict(ResultID=PATIENT_ID, PatientID="P-4711", Birth="1975-03-09", Sex="F", ClientID="W-3",
               SpecimenType="SER", Age="48Y", SerumIndexHEM="1", SerumIndexLIP="2", SerumIndexICT="0",
               ReagentVersion="3.1", SerialNumber="D0815", PanelID="Liver 6", LOTNumber="L2309",
               Date="2023-05-17 14:03:59", OperatorID="miller", ErrorCode="0", ErrorLevel="0")
PATIENT_DATA = [
    dict(AnalyteID="ALT", Result=31.5, Unit="U/L", RefRange_Min=5.5, RefRange_Max=40.5, QCFlag="0", Dynamic_Min=2.5,
         Dynamic_Max=900.5),
    dict(AnalyteID="AST", Result=52.25, Unit="U/L", RefRange_Min=5.5, RefRange_Max=35.5, QCFlag="1"),
    dict(AnalyteID="TBIL", Result=0.75, Unit="mg/dL", RefRange_Min=0.25, RefRange_Max=1.25, QCFlag="0"),
]
ANIMAL = dict(ResultID=ANIMAL_ID, PatientID="Rex", Birth="2019-11-30", Sex="M", SpeciesID="CANINE",
              SpeciesClass="Dog", ClientID="Doe", SpecimenType="PLA", SerumIndexHEM="0", SerumIndexLIP="0",
              SerumIndexICT="0", ReagentVersion="3.2", SerialNumber="D0816", PanelID="Renal 2", LOTNumber="L2310",
              Date="2023-06-01 08:00:01", OperatorID="vet", ErrorCode="0", ErrorLevel="0")
ANIMAL_DATA = [
    dict(AnalyteID="BUN", Result=17.5, Unit="mg/dL", RefRange_Min=7.5, RefRange_Max=27.5, QCFlag="0"),
    dict(AnalyteID="CREA", Result=1.125, Unit="mg/dL", RefRange_Min=0.5, RefRange_Max=1.75, QCFlag="0"),
]
CONTROL = dict(ResultID=CONTROL_ID, ControlID="QC-1", ReagentVersion="3.1", SerialNumber="D0817", PanelID="Control",
               LOTNumber="L2311", QCMaterialName="Orvela Control", QCMaterialLevel="Level 1",
               QCMaterialLotNum="QL77", QCMaterialExpiredDate="2024-12-31", Date="2023-05-17 07:30:00",
               OperatorID="miller", ErrorCode="0", ErrorLevel="0")
CONTROL_DATA = [
    dict(AnalyteID="ALT", Result=41.5, TargetMean=40.5, TargetSD=2.25, QCFlag="0", SelectedRule="1-2s",
         RuleFlag="0", Min=35.5, Max=45.5, Dynamic_Min=2.5, Dynamic_Max=900.5),
    dict(AnalyteID="AST", Result=39.25, TargetMean=40.1, TargetSD=2.3, QCFlag="0", SelectedRule="1-3s",
         RuleFlag="0", Min=35.5, Max=44.5),
]


def insert(database: sqlite3.Connection, table: str, row: dict[str, Any]) -> None:
    names = ", ".join(row)
    database.execute(f"INSERT INTO {table} ({names}) VALUES ({', '.join('?' * len(row))})", list(row.values()))


def make_database(path: Path, password: str = PASSWORD) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    with sqlite3.connect(path) as database:
        database.executescript(SCHEMA)
        insert(database, "Tb_Operator_List", dict(OperatorID="admin", Password=password))
        insert(database, "Tb_Species_Feature", dict(SpeciesID="CANINE", Class="Dog"))
        for kind, summary, rows in (("Result", PATIENT, PATIENT_DATA), ("Result", ANIMAL, ANIMAL_DATA),
                                    ("Ctrl", CONTROL, CONTROL_DATA)):
            insert(database, f"Tb_{kind}_Summary", summary)
            for row in rows:
                insert(database, f"Tb_{kind}_Data", dict(ResultID=summary["ResultID"]) | row)
    database.close()


class Analyzer:
    """A simulated analyzer: sandbox, belongings, daemon and ZELApp."""

    def __init__(self, model: str | None = "Human", tmp_size: int | None = None, data_size: int | None = None,
                 laboratory: Laboratory | None = None, number: int = 0):
        """`model` is "Human", "Veterinary", or None when the device does not know; the rest is the sandbox's."""
        self.sandbox = Sandbox(tmp_size, data_size, laboratory, number)
        self.serial = SERIAL[:-1] + str(int(SERIAL[-1]) + number)
        self.daemon = Daemon(self.sandbox)
        self.zelapp = ZelApp(self.sandbox.connect_unix, self.sandbox.path("/tmp"))
        self.device = self.sandbox.path(DEVICE)
        self.device.mkdir()
        identity = {"sn": self.serial, "project": PROJECT_NAME} | ({"model_type": model} if model else {})
        self.write_device("nv.cfg", identity)
        self.write_device("versions.cfg", {name: OLD_VERSION for name in
                                           ("BOOT", "KERNEL", "ROOTFS", "APP", "QTE", "DSP", "XML", "SYS")})
        config = self.sandbox.path(CONFIG)
        config.mkdir()
        (config / "config_webbase.cfg").write_text(f"Comment=Database;\nConnectionString={DATABASE};\n")
        (config / "config_zel.cfg").write_text(
            f"Comment=System;\nIPAddress={ENGINE.CONFIGURED};\nAdminPW={PASSWORD};\n")
        (config / "config_zelapp.cfg").write_text("Comment=Application;\nReferenceRangeDisable=0;\n")
        for name in ("log", "update", "xml_bank/1st/chip_cal", "xml_bank/2nd/chip_cal"):
            self.sandbox.path(f"/data/{name}").mkdir(parents=True)
        made = self.sandbox.root / "analyzer.db"
        make_database(made)
        self.sandbox.path(DATABASE).parent.mkdir()
        shutil.move(made, self.sandbox.path(DATABASE))

    def start(self, env: dict[str, str] | None = None) -> None:
        """Starts the daemon and connects ZELApp; returns when the daemon serves."""
        lines = ("Connection monitor thread start", "UDP bind success", "[CTCPListener::Run] Accept start")
        before = self.daemon.log()
        self.daemon.start(env)
        # Not sooner: a shell command of a daemon that was killed may still hold that one's socket for a moment.
        self.daemon.wait_for_log(ACCEPTING, 20, before.count(ACCEPTING) + 1)
        self.zelapp.connect()
        # The start notice and the first connection status come from two threads, in either order.
        first = {type(self.zelapp.receive()) for _ in range(2)}
        if first != {Started, PcConnection}:
            raise RuntimeError(f"the daemon began with {first}")
        for line in lines:
            self.daemon.wait_for_log(line, count=before.count(line) + 1)

    def close(self) -> None:
        self.zelapp.close()
        self.sandbox.close()

    def __enter__(self) -> Analyzer:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def write_device(self, name: str, values: dict[str, str]) -> None:
        (self.device / name).write_text("".join(f"{key}={value}\n" for key, value in values.items()))

    def read_device(self, name: str) -> dict[str, str]:
        lines = (self.device / name).read_text().splitlines()
        return dict(line.split("=", 1) for line in lines if "=" in line)

    def calls(self) -> list[str]:
        """The calls of the device library so far."""
        log = self.device / "calls.log"
        return log.read_text().splitlines() if log.exists() else []

    def set_faults(self, **faults: str) -> None:
        """For example `set_faults(usbMount="fail")`; names with a dot come as a dictionary."""
        self.write_device("faults.cfg", faults)

    def insert_stick(self, files: Path) -> None:
        """Puts a USB stick with the files of a directory into the analyzer."""
        shutil.copytree(files, self.device / "usb")

    def pull_stick(self) -> None:
        shutil.rmtree(self.device / "usb")

    def setting(self, key: str, name: str = "zelrm") -> str | None:
        """A value from a settings file, None when the key is not there."""
        for line in self.sandbox.path(f"{CONFIG}/config_{name}.cfg").read_text().splitlines():
            if line.startswith(key + "="):
                return line[len(key) + 1:].removesuffix(";")
        return None

    def change_setting(self, key: str, value: str, name: str = "zelrm") -> None:
        path = self.sandbox.path(f"{CONFIG}/config_{name}.cfg")
        lines = [line for line in path.read_text().splitlines() if not line.startswith(key + "=")]
        path.write_text("\n".join([*lines, f"{key}={value};"]) + "\n")

    def database(self) -> sqlite3.Connection:
        """The database itself. Not for one on a memory file system: SQLite does not find its way there."""
        return sqlite3.connect(self.sandbox.path(DATABASE))

    def rows(self, statement: str) -> list[Any]:
        database = self.database()
        try:
            return database.execute(statement).fetchall()
        finally:
            database.close()

    def synced(self, table: str, result: int) -> bool:
        """Whether a result is marked as sent; `table` is "Result" or "Ctrl"."""
        return self.rows(f"SELECT PCSync FROM Tb_{table}_Summary WHERE ResultID = {result}") == [(1,)]
