# Reads a GDSII file with KLayout's own reader and dumps what it found as JSON, for the tests to
# compare with what was written. Run as: klayout -b -r read_gds.py -rd gds=IN -rd out=OUT.json
# Shapes are keyed by layer (one per layer in the tests' files); a boundary's corners are sorted,
# since KLayout starts the hull elsewhere and drops the closing point.
import json

import pya

layout = pya.Layout()
layout.read(gds)

cells = {}
for cell in layout.each_cell():
    boundaries, texts, refs = {}, {}, []
    for li in layout.layer_indexes():
        info = layout.get_info(li)
        for shape in cell.shapes(li).each():
            if shape.is_polygon() or shape.is_box():
                props = {}
                if shape.has_prop_id():
                    for key, value in layout.properties(shape.prop_id):
                        props[str(key)] = value
                boundaries[str(info.layer)] = {
                    "datatype": info.datatype,
                    "points": sorted([p.x, p.y] for p in shape.polygon.each_point_hull()),
                    "properties": props}
            elif shape.is_text():
                t = shape.text
                texts[str(info.layer)] = {"texttype": info.datatype, "string": t.string,
                                          "x": t.x, "y": t.y}
    for inst in cell.each_inst():
        refs.append([inst.cell.name, inst.trans.disp.x, inst.trans.disp.y])
    cells[cell.name] = {"boundaries": boundaries, "texts": texts, "refs": refs}

result = {
    "dbu": layout.dbu,
    "top_cells": [c.name for c in layout.top_cells()],
    "cells": cells,
    "libname": layout.meta_info_value("libname"),
}
with open(out, "w") as f:
    json.dump(result, f, indent=1)
