// A ball that turns around a box, once while the clock runs from 0 to 1.
#version 3.7;
global_settings { assumed_gamma 1.0 }

camera { location <0, 2, -5> look_at <0, 0.5, 0> }
light_source { <3, 5, -4> color rgb 1 }
plane { y, 0 pigment { checker color rgb 0.9, color rgb 0.3 } }
box { <-0.5, 0, -0.5>, <0.5, 1, 0.5> pigment { color rgb <0.2, 0.4, 0.8> } }
sphere { <1.5, 0.5, 0>, 0.5 pigment { color rgb <0.9, 0.5, 0.1> } rotate 360 * clock * y }
