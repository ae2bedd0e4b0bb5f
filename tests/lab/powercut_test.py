"""A few power cuts; scripts/powercut makes as many as one likes."""

from appliance import OnABridge
from lab import powercut


class PowerCut(OnABridge):
    def test_the_next_install_succeeds_and_data_is_kept(self) -> None:
        bench = powercut.Bench(self.folder / "bench", self.bridge)
        self.addCleanup(bench.one.machine.cut)
        ways = [way for way in powercut.WAYS if way.name in ("upload", "migration")]
        for row in powercut.run(bench, 4, seed=1, ways=ways):
            with self.subTest(" ".join(powercut.cells(row))):
                self.assertTrue(row.is_good)
